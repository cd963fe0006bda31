"""embed_page.py OUTPUT HEADER FUNCTION REASONS PAGE FILE...: a page, put together, as a C++ source.

In PAGE, {{NAME}} stands for the file of that name; {{scripts}} and {{styles}} stand for all *.js and
all *.css that it does not name, in the order given. HEADER declares FUNCTION, which returns the page,
and FUNCTIONPolicy, which returns its Content-Security-Policy: the page may run its own scripts and
styles, known by their hashes, and connect to where it came from.

REASONS is the C++ header with the list of all reasons of forces. The page has a colour for each of
them, named after it, on light and on dark, and no others.
"""

import base64
import collections
import hashlib
import pathlib
import re
import sys


def array(name, text):
    content = text.encode()
    return (f"constexpr std::array<char, {len(content)}> {name}{{\n"
            + ",".join(f"'\\x{byte:02x}'" for byte in content) + "};\n")


def check_colors(reasons, page):
    text = pathlib.Path(reasons).read_text()
    listed = re.findall(r"\w+", re.search(r"std::array all\{([^}]*)\}", text)[1])
    names = (re.search(rf'ForceReason {reason}\{{\s*"([^"]+)"', text)[1] for reason in listed)
    expected = {"reason-" + name.lower().replace(" ", "-"): 2 for name in names}
    wrong = expected.items() ^ collections.Counter(re.findall(r"--(reason-[^:\s]+):", page)).items()
    if wrong:
        sys.exit(f"{reasons}: its reasons lack these colours, on light or on dark, or have no use for "
                 f"them: {', '.join(sorted(dict(wrong)))}")


def main(output, header, function, reasons, page, *files):
    page = pathlib.Path(page).read_text()
    files = [pathlib.Path(file) for file in files]
    # No source map is served with the page, so browsers should not look for one.
    texts = {file.name: re.sub(r"(//|/\*)# sourceMappingURL=[^\n]*", "", file.read_text())
             for file in files}
    for name, ending in ("scripts", ".js"), ("styles", ".css"):
        texts[name] = "\n".join(texts[file.name] for file in files
                                if file.suffix == ending and f"{{{{{file.name}}}}}" not in page)
    for name, text in texts.items():
        page = page.replace(f"{{{{{name}}}}}", text)
    check_colors(reasons, page)

    sources = {}
    for element in "script", "style":
        inline = re.findall(rf"<{element}>(.*?)</{element}>", page, re.S)
        digests = (hashlib.sha256(text.encode()).digest() for text in inline)
        sources[element] = " ".join(f"'sha256-{base64.b64encode(digest).decode()}'"
                                    for digest in digests)
    # What may run stands last, so that a server can add to it.
    policy = (f"default-src 'none'; style-src {sources['style']}; connect-src 'self'; "
              "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
              f"script-src {sources['script']}")

    pathlib.Path(output).write_text(f"""#include "{header}"

#include <array>

namespace zorvel {{
namespace {{

{array("page", page)}
{array("policy", policy)}
}}  // namespace

std::string_view {function}() {{ return {{page.data(), page.size()}}; }}

std::string_view {function}Policy() {{ return {{policy.data(), policy.size()}}; }}

}}  // namespace zorvel
""")


main(*sys.argv[1:])
