"""embed_page.py OUTPUT HEADER FUNCTION REASONS PAGE FOLDER BUNDLE...: a page, put together, as a C++
source.

In PAGE, {{NAME}} stands for the file of that name, seen from PAGE, or else in FOLDER. BUNDLE is the
command that puts a module of the page and all that it imports into one script; its warnings are errors.
HEADER declares FUNCTION, which returns the page, and FUNCTIONPolicy, which returns its
Content-Security-Policy: the page may run its own scripts and styles, known by their hashes, and connect
to where it came from.

REASONS is the C++ header with the list of all reasons of forces. The page has a colour for each of
them, named after it, on light and on dark, and no others.
"""

import base64
import collections
import hashlib
import json
import pathlib
import re
import subprocess
import sys
import tempfile


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


def bundled(command, module):
    """The script, and the files that it is made of."""
    with tempfile.TemporaryDirectory() as folder:
        script, facts = pathlib.Path(folder, "script.js"), pathlib.Path(folder, "facts.json")
        result = subprocess.run([*command, module.name, f"--outfile={script}", f"--metafile={facts}"],
                                cwd=module.parent, stderr=subprocess.PIPE, text=True)
        if result.returncode != 0 or result.stderr:
            sys.exit(result.stderr)
        files = json.loads(facts.read_text())["inputs"]
        return script.read_text(), [module.parent / file for file in files]


def main(output, header, function, reasons, page, folder, *bundle):
    place = pathlib.Path(page)
    used = [place]

    def text_of(name):
        file = place.parent / name[1]
        if file.suffix == ".js" and file.exists():
            script, files = bundled(bundle, file)
            used.extend(files)
            return script
        used.append(file if file.exists() else pathlib.Path(folder, name[1]))
        # No source map is served with the page, so browsers should not look for one.
        return re.sub(r"(//|/\*)# sourceMappingURL=[^\n]*", "", used[-1].read_text())
    page = re.sub(r"\{\{(.+\.(?:css|js))\}\}", text_of, place.read_text())
    pathlib.Path(f"{output}.d").write_text(f"{output}: " + " ".join(
        str(file.resolve()).replace(" ", "\\ ") for file in used))
    check_colors(reasons, page)

    sources = {}
    for element in "script", "style":
        inline = re.findall(rf"<{element}>(.*?)</{element}>", page, re.S)
        digests = (hashlib.sha256(text.encode()).digest() for text in inline)
        sources[element] = " ".join(f"'sha256-{base64.b64encode(digest).decode()}'"
                                    for digest in digests)
    # What may run comes last, so that a server can add to it.
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
