// The questions of tests: a card each, in the tile of its site or, where tiles are small, beside them. A card never
// covers another site, and never takes the keyboard away from anybody.

import { command } from "./api.js";
import { element, put, putImage, show } from "./dom.js";
import { wholeDuration } from "./format.js";
import { texts } from "./texts.js";

const kShownWhenGone = 4000;  // ms

function isLimit(value) {
  return Number.isFinite(value);
}

class Card {
  constructor(site, question) {
    this.site = site;
    this.id = question.id;
    this.question = question;
    this.answered = false;
    this.text = element("p.ask-text");
    this.image = element("img.ask-image", { alt: texts.imageAlt(site) });
    this.left = element("span.ask-left");
    this.problem = element("p.ask-problem", { role: "alert", hidden: true });
    this.controls = element("div.ask-controls");
    this.root = element("div.ask", { role: "group", "aria-label": texts.asks(site) },
      element("div.ask-head", element("strong.ask-site", texts.asks(site)), this.left),
      element("div.ask-middle", this.text, this.image), element("div.ask-foot", this.controls, this.problem));
    this.choices = this.#makeControls(question);
  }

  #makeControls(question) {
    if (question.kind === "text" || question.kind === "number") {
      this.#makeField(question);
      return [];
    }
    const choices = question.kind === "choose" ? question.choices ?? [] : [texts.ok];
    choices.forEach((choice, index) => {
      const key = index < 9 ? element("kbd", String(index + 1)) : undefined;
      const answer = question.kind === "choose" ? choice : "";
      this.controls.append(element("button.choice", { type: "button", click: () => this.answer(answer) },
        key, element("span", choice)));
    });
    return choices;
  }

  #makeField(question) {
    const hint = question.kind === "number" ? this.#limits(question)
      : question.pattern ? texts.mustMatch(question.pattern) : "";
    this.field = element("input.ask-field", {
      type: "text", maxlength: "1000", spellcheck: "false", autocomplete: "off",
      inputmode: question.kind === "number" ? "decimal" : undefined,
      "aria-label": `${texts.asks(this.site)}: ${question.text}`,
      "data-takes-scans": question.kind === "text",
    });
    this.field.takeScan = () => this.#submit();
    this.controls.append(element("form.ask-form", { submit: (event) => {
      event.preventDefault();
      this.#submit();
    } }, this.field, element("button.primary", texts.answer)));
    if (hint) this.controls.append(element("span.ask-hint", hint));
  }

  #limits({ low, high }) {
    if (isLimit(low) && isLimit(high)) return texts.between(low, high);
    if (isLimit(low)) return texts.atLeast(low);
    return isLimit(high) ? texts.atMost(high) : "";
  }

  #submit() {
    let text = this.field.value;
    if (this.question.kind === "number") {
      text = text.trim().replace(",", ".");
      const number = Number(text);
      const { low, high } = this.question;
      if (text === "" || !Number.isFinite(number)) return put(this.problem, texts.notANumber);
      if (number < (low ?? -Infinity) || number > (high ?? Infinity)) {
        return put(this.problem, texts.outside(this.#limits(this.question)));
      }
    }
    return this.answer(text);
  }

  choose(digit) {
    this.controls.querySelectorAll(".choice")[digit - 1]?.click();
  }

  async answer(text) {
    if (this.answered) return;
    this.answered = true;
    this.root.classList.add("sent");
    put(this.problem, "");
    if (this.root.contains(document.activeElement)) document.activeElement.blur();
    const result = await command("answer", { site: this.site, question: this.id, answer: text });
    if (result.done) return;
    this.answered = false;
    this.root.classList.remove("sent");
    put(this.problem, result.message);
  }

  update(question, now) {
    this.question = question;
    put(this.text, question.text);
    putImage(this.image, question.image);
    const seconds = question.until === undefined ? undefined : Math.max(0, question.until - now) / 1e6;
    put(this.left, seconds === undefined ? "" : texts.timeLeft(wholeDuration(seconds)));
    this.root.classList.toggle("hurry", seconds !== undefined && seconds < 10);
  }
}

export class Questions {
  #cards = new Map();
  #side;

  /// `side` holds the cards that have no room in their tiles.
  constructor(side) {
    this.#side = side;
    this.hint = element("p.ask-keys.muted");
    this.title = element("h2");
    side.append(this.title, this.hint);
  }

  /// Shows the open questions of `sites`. `holderOf(site)` is the place in its tile, or absent where it has no room.
  update(order, sites, now, holderOf) {
    for (const [site, card] of this.#cards) {
      if (sites[site]?.question?.id !== card.id) this.#remove(site, card);
    }
    for (const site of order) {
      const question = sites[site]?.question;
      if (!question) continue;
      let card = this.#cards.get(site);
      if (!card) {
        card = new Card(site, question);
        this.#cards.set(site, card);
      }
      card.update(question, now);
      const holder = holderOf(site) ?? this.#side;
      // A card in which somebody types stays where it is.
      if (card.root.parentNode !== holder && !card.root.contains(document.activeElement)) holder.append(card.root);
    }
    const beside = this.#side.querySelectorAll(".ask").length;
    show(this.#side, beside > 0);
    put(this.title, texts.questions(beside));
    const chosen = [...this.#cards.values()].filter((card) => card.choices.length > 0).length;
    put(this.hint, chosen === 0 ? "" : this.#cards.size > 1 ? texts.keysAfterTab : texts.keys);
    return beside;
  }

  #remove(site, card) {
    this.#cards.delete(site);
    const hadFocus = card.root.contains(document.activeElement);
    if (hadFocus) document.activeElement.blur();
    if (card.answered || !card.field?.value) {
      card.root.remove();
      return;
    }
    // Somebody was about to answer: the words do not just vanish.
    card.root.replaceChildren(element("p.ask-gone", { role: "status" }, texts.answeredElsewhere));
    setTimeout(() => card.root.remove(), kShownWhenGone);
  }

  /// A digit answers the question in which the keyboard is, or else the only open one.
  digit(digit) {
    const cards = [...this.#cards.values()];
    const chosen = cards.find(({ root }) => root.contains(document.activeElement));
    const card = chosen ?? (cards.length === 1 ? cards[0] : undefined);
    card?.choose(digit);
  }
}
