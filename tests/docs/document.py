"""A Markdown document: its fenced blocks, headings, links and code spans."""

import re
from dataclasses import dataclass

FENCE = re.compile(r"^( *)```([\w+-]*)\s*$")


@dataclass
class Block:
    """A fenced block. `check` is what a comment `<!-- check: ... -->` right above it says, or ""."""

    language: str
    text: str
    line: int  # of its first line of text, from 1
    check: str


class Document:
    def __init__(self, path):
        self.path = path
        self.text = path.read_text(encoding="utf-8")
        self.blocks = []
        prose = []  # the lines outside of blocks, the others empty
        comment, pending, fence = None, "", None
        for number, line in enumerate(self.text.splitlines(), 1):
            match = FENCE.match(line)
            prose.append("")
            if fence is not None:
                if match and not match[2]:
                    fence = None
                else:
                    self.blocks[-1].text += line.removeprefix(fence) + "\n"
                continue
            if comment is not None or line.lstrip().startswith("<!-- check:"):
                comment = (comment or "") + line.strip() + "\n"
                if "-->" in line:
                    pending = re.sub(r"^<!-- check:\s*|\s*-->\s*$", "", comment)
                    comment = None
                    if pending.startswith("run\n"):
                        self.blocks.append(Block("sh", pending.removeprefix("run\n") + "\n", number, ""))
                        pending = ""
            elif match:
                fence = match[1]
                self.blocks.append(Block(match[2], "", number + 1, pending))
                pending = ""
            else:
                prose[-1] = line
                if line.strip():
                    pending = ""
        self.prose = "\n".join(prose)

    def line_of(self, position):
        """The line of a position in `prose`."""
        return self.prose.count("\n", 0, position) + 1

    def anchors(self):
        """What a link can name behind its #: the headings, written as web views of Markdown write them."""
        titles = re.findall(r"^#+ +(.*)$", self.prose, re.M)
        return {re.sub(r"[^\w\- ]", "", title.lower()).strip().replace(" ", "-") for title in titles}

    def links(self):
        """(target, line) of every link that is not to another machine."""
        for match in re.finditer(r"\]\(([^)\s]+)\)", self.prose):
            if not re.match(r"\w+:", match[1]):
                yield match[1], self.line_of(match.start())

    def code_spans(self):
        """(text, line) of every `code span`."""
        for match in re.finditer(r"(?<!`)`([^`]+)`(?!`)", self.prose):
            yield " ".join(match[1].split()), self.line_of(match.start())
