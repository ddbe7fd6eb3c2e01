#!/usr/bin/env python3
"""Doxygen input filter: hands the headers' plain // comments to Doxygen.

The headers document with // comments, as the house style writes them:
  - a comment line of its own documents what follows it: // becomes ///;
  - a comment behind a member documents that member: // becomes ///<;
  - a line declaring several members at once (`int x, y;  // ...`) becomes a
    member group documented by its comment (before or behind it), which
    Doxygen's DISTRIBUTE_GROUP_DOC gives to each member;
  - deleted functions (copies made unavailable) are the absence of an
    interface, not part of it: they are dropped.
Lines of rules (// ---, // ===) stay plain comments.
"""
import re
import sys

RULE = re.compile(r"^\s*// ?[-=]{3,}")
OWN = re.compile(r"^(\s*)//( |$)(.*)$")
TRAILING = re.compile(r"^(.*?[;,{}])(\s*)// (.*)$")
# A data member declaring several names: no parentheses, names split by commas.
SEVERAL = re.compile(r"^(\s*)[A-Za-z_][\w:<>*&\s]*?[\s*&>]\w+(\s*,\s*\w+)+\s*;\s*$")


def filtered(lines):
    for line in lines:
        if "= delete;" in line and not line.lstrip().startswith("//"):
            continue
        if RULE.match(line):
            yield line
            continue
        own = OWN.match(line)
        if own:
            yield f"{own.group(1)}///{own.group(2)}{own.group(3)}"
            continue
        trailing = TRAILING.match(line)
        code = trailing.group(1) if trailing else line
        several = SEVERAL.match(code)
        if several:
            indent = several.group(1)
            if trailing:
                yield f"{indent}/// {trailing.group(3)}"
            yield f"{indent}///@{{"
            yield code
            yield f"{indent}///@}}"
            continue
        if trailing:
            yield f"{trailing.group(1)}{trailing.group(2)}///< {trailing.group(3)}"
            continue
        yield line


def main(path):
    with open(path, encoding="utf-8") as f:
        lines = f.read().split("\n")
    sys.stdout.write("\n".join(filtered(lines)))


if __name__ == "__main__":
    main(sys.argv[1])
