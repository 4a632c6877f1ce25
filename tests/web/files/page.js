export const text = "back\\slash, \"quotes\", umlaut ä, )QUILLON\", ??= ${x}; [[a;b]]";
