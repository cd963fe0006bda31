"""Holds ARCHITECTURE.md against what there is, and what the sources include and import."""

import ast
import collections
import graphlib
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent
FRONT_ENDS = ["recording", "playback", "inspection", "import", "export", "report", "view", "python", "tool"]
UMBRELLA = ROOT / "include/zv/zorvel.hpp"
OPEN_TO_ALL = {"zv/export.hpp", "zv/version.hpp", "log_categories.hpp"}


def sources(*folders):
    return [path for folder in folders for path in (ROOT / folder).rglob("*.[ch]pp")]


def documented():
    text = (ROOT / "ARCHITECTURE.md").read_text()
    table = text[text.index("| module |"):text.index("`include/zv/` are")]
    return {name: sorted(filter(None, included.split(", ")))
            for name, included in re.findall(r"^\| `(?:src/)?(.+?)` \|.*\| ?(.*?) ?\|$", table, re.M)}


def module_of(path):
    folders = path.relative_to(ROOT).parts[:-1]
    if folders[0] == "include":
        source = next((source for source in sources("src") if source.stem == path.stem), None)
        return module_of(source) if source else "observation"
    if folders[0] == "src":
        return folders[1] if len(folders) > 1 else path.stem
    return "/".join(folders[:2]) if folders[0] in ("pages", "python", "tool") else folders[0]


def imported():
    """For each module of the pages, the modules that it imports, even if only types."""
    return {path: {(path.parent / name).resolve() for name in
                   re.findall(r'(?:from|import)\s*\(?"(\.[^"]+\.js)"', path.read_text())}
            for path in (ROOT / "pages").glob("*/*.js")}


def imported_in_python():
    """For each module of the package, the others that it imports, even if in a function or for types."""
    imports = {}
    for path in (ROOT / "python/zorvel").rglob("*.py"):
        nodes = [node for node in ast.walk(ast.parse(path.read_text()))
                 if isinstance(node, ast.ImportFrom) and node.level > 0]
        imports[path] = set()
        for node, name in ((node, alias.name) for node in nodes for alias in node.names):
            place = path.parents[node.level - 1].joinpath(*(node.module or "").split("."))
            files = [file for module in (place / name, place) for file in
                     (module.with_suffix(".py"), module.with_suffix(".pyi"), module / "__init__.py")]
            imports[path].add(next(file for file in files if file.is_file()))
    return imports


def found():
    """For each module, the modules that it includes from."""
    modules = collections.defaultdict(set)
    for path, others in imported().items():
        modules[module_of(path)].update(map(module_of, others))
        modules[module_of(path)].discard(module_of(path))
    for path in sources("src", "include", *FRONT_ENDS):
        module = module_of(path)
        if path == UMBRELLA or path.name in OPEN_TO_ALL:
            continue
        is_library = path.relative_to(ROOT).parts[0] in ("src", "include")
        for name in re.findall(r'#include [<"]([^>"]+)[>"]', path.read_text()):
            if name in OPEN_TO_ALL:
                continue
            if name.startswith("zv/") and not is_library:
                modules[module].add("library")
                continue
            folders = ["include", "src"] if is_library else [".", "tool"]
            included = [ROOT / folder / name for folder in folders if (ROOT / folder / name).is_file()]
            modules[module].update(map(module_of, included))
        modules[module].discard(module)
    return {module: sorted(included) for module, included in modules.items()}


class ArchitectureTest(unittest.TestCase):
    maxDiff = None

    def test_a_module_includes_what_its_row_says(self):
        self.assertEqual(found(), documented())

    def test_every_file_of_the_map_is_there(self):
        folders = [ROOT, ROOT / "include", ROOT / "pages", ROOT / "recording/include"]
        text = (ROOT / "ARCHITECTURE.md").read_text()
        for name in re.findall(r"`((?:[\w-]+/)+[\w-]+\.\w+)`", text):
            self.assertTrue(any((folder / name).is_file() for folder in folders), name)
        known = {path.name for folder in ROOT.iterdir() if folder.name not in ("build", ".git")
                 for path in folder.rglob("*.*")}
        self.assertEqual(set(re.findall(r"`([\w-]+\.(?:[ch]pp|h|py|js|html))`", text)) - known, set())

    def test_the_umbrella_header_includes_every_public_header(self):
        public = {str(path.relative_to(ROOT / "include")) for path in sources("include")}
        included = set(re.findall(r'#include "(.+)"', UMBRELLA.read_text()))
        self.assertEqual(included, public - {"zv/zorvel.hpp"} | {"zv/version.hpp"})

    def test_pages_import_without_circles(self):
        order = list(graphlib.TopologicalSorter(imported()).static_order())
        self.assertEqual([path for path in order if not path.is_file()], [])

    def test_the_package_imports_without_circles(self):
        graphlib.TopologicalSorter(imported_in_python()).prepare()

    def test_a_command_leans_on_no_other(self):
        commands = ROOT / "tool/commands"
        for path in sources("tool/commands"):
            own = path.relative_to(commands).parts[0]
            for name in re.findall(r'#include "commands/([^/"]+)', path.read_text()):
                self.assertEqual(name, own, path)


unittest.main()
