"""Simplified and Traditional characters, by the program's own table."""

import os
import re

TABLE = os.path.join("src", "terms", "ScriptTable.cpp")


class Scripts:
    """Folds texts so that both scripts look alike, and tells one from the other."""

    def __init__(self, root):
        with open(os.path.join(root, TABLE), encoding="utf-8") as file:
            source = file.read()
        columns = [
            "".join(re.findall(r'U"([^"]*)"', re.search(rf"\b{name} =(.*?);", source, re.S).group(1)))
            for name in ("kSimplifiedCharacters", "kTraditionalCharacters")
        ]
        self.simplified, self.traditional = columns
        if not columns[0] or len(columns[0]) != len(columns[1]):
            raise ValueError(f"{TABLE} has not the expected form")
        self.simpler = {}
        for simplified, traditional in zip(*columns):
            self.simpler.setdefault(traditional, simplified)
        self.only_simplified = set(columns[0]) - set(columns[1])
        self.only_traditional = set(columns[1]) - set(columns[0])

    def fold(self, text):
        """`text`, character by character in the simplified form, ASCII capitals lowered."""
        return "".join(self.simpler.get(c, c.lower() if c.isascii() else c) for c in text)

    def places(self, word, text):
        """Where `word` stands in `text` in either script: (begin, end) each."""
        wanted, folded, found, at = self.fold(word), self.fold(text), [], 0
        while (at := folded.find(wanted, at)) >= 0:
            found.append((at, at + len(wanted)))
            at += len(wanted)
        return found

    def name(self, text):
        """"Simplified" or "Traditional", whichever has more of its own characters in `text`, else ""."""
        simplified = sum(c in self.only_simplified for c in text)
        traditional = sum(c in self.only_traditional for c in text)
        if simplified == traditional:
            return ""
        return "Simplified" if simplified > traditional else "Traditional"
