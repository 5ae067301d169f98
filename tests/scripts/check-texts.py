#!/usr/bin/env python3
"""Checks the texts of a configuration: check-texts.py [CONFIG], by default that of the source
tree. Every key of text-keys.txt stands in every language, once, not empty and with all of its
arguments; no language has others; the sources look up no other key; the files that the texts and
the wizard name are there. Prints what is wrong, and exits with 1 then."""
import pathlib
import re
import sys

TOKEN = re.compile(r'[ \t]*(?:(;[^\r\n]*)|"((?:[^"]|"")*)"|([{}])|([^\s{}"]+)|([\r\n]+))')


def languages(text):
    """{language: [(key, text)]} of the `locales` block; quoted values only."""
    path, pending, result = [], None, {}
    for comment, quoted, brace, bare, line_end in TOKEN.findall(text):
        if comment or line_end:
            continue
        if brace == "{":
            path, pending = path + [pending], None
            if path[0] == "locales" and len(path) == 2:
                result[path[1]] = []
        elif brace == "}":
            path.pop()
        elif pending is None:
            pending = bare or quoted.replace('""', '"')
        else:
            if path[:1] == ["locales"]:
                result[path[1]].append((pending, quoted.replace('""', '"')))
            pending = None
    return result


def main():
    root = pathlib.Path(__file__).resolve().parent.parent.parent
    config = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else root / "data/patch-config.txt"
    listed = pathlib.Path(__file__).with_name("text-keys.txt").read_text(encoding="utf-8")
    wanted = {key: int(count) for key, count in
              (line.split() for line in listed.splitlines() if line.startswith("$"))}
    found = languages(config.read_text(encoding="utf-8"))
    errors = [] if len(found) > 1 else ["fewer than two languages"]

    for name, pairs in found.items():
        texts = dict(pairs)
        errors += [f"{name}: twice: {k}" for k in texts if sum(k == p[0] for p in pairs) > 1]
        errors += [f"{name}: missing: {key}" for key in wanted.keys() - texts.keys()]
        errors += [f"{name}: unknown: {key}" for key in texts.keys() - wanted.keys()]
        for key, text in texts.items():
            used = {int(n) for n in re.findall(r"\$(\d+)", text)}
            if used != set(range(1, wanted.get(key, 0) + 1)):
                errors.append(f"{name}: {key} uses the arguments {sorted(used)}")
            if not text.strip() or "\r" in text:
                errors.append(f"{name}: {key} is empty or has a carriage return")
        licence = texts.get("$velpatch_eula_filename", "")
        if not (config.parent / licence).is_file():
            errors.append(f"{name}: no file {licence}")
    for picture in ("velpatch-background.bmp", "patch.bmp"):
        if not (config.parent / picture).is_file():
            errors.append(f"no file {picture}")
    for folder in ("core", "runtime", "stream", "dn", "net", "patch", "app", "ui", "kit"):
        for source in sorted((root / folder).rglob("*.cpp")):
            literals = re.findall(r'"(\$(?:velpatch_|please_)\w*)"',
                                  source.read_text(encoding="utf-8"))
            errors += [f"{source}: unknown: {key}" for key in literals if key not in wanted]

    print("\n".join(errors) or f"{len(wanted)} texts in {', '.join(found)}: good")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
