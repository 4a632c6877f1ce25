// The page's texts in the language that the address asks for, as in /?lang=de; English where there is none.

async function load() {
  const wanted = new URLSearchParams(location.search).get("lang") ?? "en";
  if (/^[a-z]{2,8}$/.test(wanted) && wanted !== "en") {
    try {
      const texts = (await import(`./texts-${wanted}.js`)).default;
      document.documentElement.lang = wanted;
      return texts;
    } catch {
      // There is no such language.
    }
  }
  return (await import("./texts-en.js")).default;
}

export const texts = await load();
