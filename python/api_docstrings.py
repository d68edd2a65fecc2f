"""Writes the C++ header of the module's docstrings from docs/api.md: each function's text from
the library's reference, by name, so that help(korvane.createLut) reads as docs/api.md does.

    api_docstrings.py docs/api.md api_docs.h
"""
import re
import sys


def sections(markdown):
    """(name, text) for every "### name" section: its paragraphs after the code block."""
    for match in re.finditer(r"^### (\w+)\n(.*?)(?=^##|\Z)", markdown, re.S | re.M):
        body = re.sub(r"```.*?```", "", match.group(2), flags=re.S)
        yield match.group(1), "\n\n".join(part.strip() for part in body.split("\n\n") if part.strip())


def main(source, target):
    with open(source, encoding="utf-8") as markdown:
        entries = [f'    {{"{name}", R"krvdoc({text})krvdoc"}},' for name, text in sections(markdown.read())]
    with open(target, "w", encoding="utf-8") as header:
        header.write("// Generated from docs/api.md by python/api_docstrings.py; do not edit.\n#pragma once\n\n"
                     "namespace korvane_py {\n\nstruct ApiDoc {\n    const char* name;\n    const char* text;\n};\n\n"
                     "inline constexpr ApiDoc kApiDocs[] = {\n" + "\n".join(entries) + "\n};\n\n}  // namespace korvane_py\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
