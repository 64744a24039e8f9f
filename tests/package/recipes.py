"""Checks the recipes for Yocto and Buildroot without either: their files are parsed, and
what they have CMake configure, build and install is done, into a directory each.

Usage: recipes.py BUILD_DIRECTORY
"""
from __future__ import annotations

import fnmatch
import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

SOURCES = Path(__file__).resolve().parents[2]
LAYER = SOURCES / "packaging/yocto/meta-treescope"
EXTERNAL = SOURCES / "packaging/buildroot"


class Wrong(Exception):
    pass


def check(condition: bool, message: str) -> None:
    if not condition:
        raise Wrong(message)


def run(*command: str, environment: dict[str, str] | None = None) -> str:
    finished = subprocess.run(
        command, capture_output=True, text=True, env={**os.environ, **(environment or {})}
    )
    check(finished.returncode == 0, f"{shlex.join(command)}:\n{finished.stdout}{finished.stderr}")
    return finished.stdout


class Recipe:
    """The assignments and the classes of a BitBake file. Knows what these files use: no
    functions, no conditions, and one expression in Python."""

    STATEMENT = re.compile(r'([A-Za-z0-9_:${}.-]+) *(=|\?=|\+=|=\+|\.=|:=) *"(.*)"')

    def __init__(self, path: Path) -> None:
        # What the classes and bitbake.conf set.
        self.values = {
            "PN": path.name.partition("_")[0],
            "LAYERDIR": str(LAYER),
            "THISDIR": str(path.parent),
            "prefix": "/usr",
            "bindir": "${prefix}/bin",
            "libdir": "${prefix}/lib",
            "includedir": "${prefix}/include",
            "datadir": "${prefix}/share",
            "mandir": "${datadir}/man",
            "systemd_system_unitdir": "${prefix}/lib/systemd/system",
            "PYTHON_SITEPACKAGES_DIR": "${libdir}/python3.12/site-packages",
            "PACKAGES": "${PN}-dev ${PN}-doc ${PN}",
            "FILES:${PN}-dev": "${includedir} ${libdir}/lib*.so ${libdir}/pkgconfig ${libdir}/cmake",
            "FILES:${PN}-doc": "${datadir}/doc ${mandir}",
            "FILES:${PN}": "${bindir}/* ${libdir}/lib*.so.*",
        }
        self.classes: list[str] = []
        text = path.read_text().replace("\\\n", "")
        for number, line in enumerate(text.splitlines(), 1):
            if not line or line.startswith("#"):
                continue
            if line.startswith("inherit "):
                self.classes += line.split()[1:]
                continue
            match = self.STATEMENT.fullmatch(line)
            check(match is not None, f"{path}: statement {number} is none: {line}")
            assert match is not None
            self.assign(*match.groups())

    def assign(self, name: str, operator: str, value: str) -> None:
        old = self.values.get(name, "")
        self.values[name] = {
            "=": value,
            ":=": value,
            "?=": old or value,
            "+=": f"{old} {value}",
            "=+": f"{value} {old}",
            ".=": old + value,
        }[operator]

    def get(self, name: str) -> str:
        """The expanded value."""
        check(name in self.values, f"{name} is not set")
        return self.expand(self.values[name])

    def expand(self, text: str) -> str:
        match = re.fullmatch(r"\$\{@(.*)\}", text)
        if match:
            # What BitBake gives to an expression: its store, and a few modules.
            return str(eval(match[1], {"d": self, "os": os}))
        return re.sub(r"\$\{([A-Za-z0-9_:-]+)\}", lambda name: self.get(name[1]), text)

    getVar = get

    def package_of(self, file: str) -> str:
        """The first package whose FILES have the file, as BitBake distributes them."""
        for package in self.get("PACKAGES").split():
            own = package.replace(self.get("PN"), "${PN}", 1) if package.startswith(self.get("PN")) else package
            for pattern in self.expand(self.values.get(f"FILES:{own}", "")).split():
                if fnmatch.fnmatchcase(file, pattern) or file.startswith(pattern + "/"):
                    return package
        raise Wrong(f"{file} is in no package")


def install(build: Path, options: list[str]) -> Path:
    """What cmake --install installs with these options."""
    # The flags are the distribution's; none of them matters here but that it is fast.
    run("cmake", "-G", "Ninja", "-S", str(SOURCES), "-B", str(build), "--fresh",
        "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0", "-DCMAKE_UNITY_BUILD=ON",
        "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0", "-DCMAKE_INSTALL_PREFIX=/usr",
        "-DCMAKE_INSTALL_LIBDIR=lib", *options)
    run("cmake", "--build", str(build))
    target = build / "target"
    shutil.rmtree(target, ignore_errors=True)
    run("cmake", "--install", str(build), environment={"DESTDIR": str(target)})
    return target


def files(target: Path) -> list[str]:
    return sorted("/" + str(file.relative_to(target)) for file in target.rglob("*")
                  if file.is_symlink() or not file.is_dir())


def check_yocto(build: Path) -> None:
    layer = Recipe(LAYER / "conf/layer.conf")
    recipes = [path for pattern in layer.get("BBFILES").split() for path in LAYER.glob(
        os.path.relpath(pattern, LAYER))]
    check(len(recipes) == 1, f"the layer has {recipes}")
    recipe = Recipe(recipes[0])
    version = re.search(r"project\(treescope VERSION ([0-9.]+)", (SOURCES / "CMakeLists.txt").read_text())
    check(version is not None and recipes[0].name == f"treescope_{version[1]}.bb", "another version")
    check(set(recipe.classes) == {"cmake", "externalsrc", "python3-dir", "systemd", "useradd"},
          f"inherits {recipe.classes}")
    check(Path(recipe.get("EXTERNALSRC")) == SOURCES, f"EXTERNALSRC is {recipe.get('EXTERNALSRC')}")

    target = install(build, recipe.get("EXTRA_OECMAKE").split())
    packages: dict[str, list[str]] = {}
    for file in files(target):
        packages.setdefault(recipe.package_of(file), []).append(file)
    check(set(packages) == set(recipe.get("PACKAGES").split()), f"packages with files: {set(packages)}")
    expected = {
        "treescope": ["/usr/bin/treectl", "/usr/bin/treescope"],
        "modelsrvd": ["/usr/bin/modelsrvd", "/usr/lib/systemd/system/modelsrvd.service"],
        "modelgate": ["/usr/bin/modelgate", "/usr/bin/modelgate-certificates",
                      "/usr/lib/systemd/system/modelgate-export.service",
                      "/usr/lib/systemd/system/modelgate-view.service"],
        "libkrvkstd": ["/usr/lib/libkrvkstd.so.0"],
        "libkrvsyssrv": ["/usr/lib/libkrvsyssrv.so.4"],
        "libtreescope": ["/usr/lib/libtreescope.so.0"],
    }
    for package, wanted in expected.items():
        found = [file for file in packages[package] if not file.startswith("/usr/share/")]
        check(found == wanted, f"{package} has {found}")
    for package in recipe.get("SYSTEMD_PACKAGES").split():
        for unit in recipe.get(f"SYSTEMD_SERVICE:{package}").split():
            check(f"/usr/lib/systemd/system/{unit}" in packages[package], f"{unit} is in no package")
            text = (target / f"usr/lib/systemd/system/{unit}").read_text()
            user = re.search("^User=(.*)$", text, re.M)
            check(user is not None and recipe.get(f"USERADD_PARAM:{package}").split()[-1] == user[1],
                  f"the user of {unit} is not made")


def make(target: Path | None, source: Path, goal: str, **variables: str) -> str:
    return run("make", "--silent", "-f", str(SOURCES / "tests/package/buildroot.mk"),
               f"BR2_EXTERNAL_TREESCOPE_PATH={EXTERNAL}", "PYTHON3_VERSION_MAJOR=3.12",
               f"TARGET_DIR={target}", f"@D={source}",
               *(f"{name}={value}" for name, value in variables.items()), goal)


def check_config_in() -> None:
    words = {"config", "bool", "depends", "select", "help", "if", "endif", "comment", "default"}
    in_help = False
    for number, line in enumerate((EXTERNAL / "package/treescope/Config.in").read_text()
                                  .replace("\\\n", "").splitlines(), 1):
        if in_help and (not line or line.startswith("\t  ")):
            continue
        word = line.split()[0] if line.split() else ""
        check(not word or word in words, f"Config.in:{number}: {line}")
        in_help = word == "help"
    check("package/treescope/Config.in" in (EXTERNAL / "Config.in").read_text(), "Config.in is not read")
    check("name: TREESCOPE\n" in (EXTERNAL / "external.desc").read_text(), "the tree has another name")


def check_buildroot(build: Path) -> None:
    check_config_in()
    options = make(None, SOURCES, "print").split()
    more = make(None, SOURCES, "print", BR2_PACKAGE_TREESCOPE_MODELGATE="y").split()
    check("-DTREESCOPE_GATEWAY=OFF" in options and "-DTREESCOPE_GATEWAY=ON" in more, f"{options}, {more}")
    base = install(build, options)
    # What Buildroot synchronizes the sources to.
    copy = build / "source"
    (copy / "packaging").mkdir(parents=True, exist_ok=True)
    shutil.copy(SOURCES / "packaging/modelsrvd.service.in", copy / "packaging")
    for name, choices, has, lacks in [
        ("all", {"BR2_INIT_SYSTEMD": "y", "BR2_PACKAGE_TREESCOPE_MODELSRVD": "y",
                 "BR2_PACKAGE_TREESCOPE_PYTHON": "y"},
         ["usr/bin/modelsrvd", "usr/lib/systemd/system/modelsrvd.service",
          "usr/lib/python3.12/site-packages/treescope/client.py"], []),
        ("sysv", {"BR2_PACKAGE_TREESCOPE_MODELSRVD": "y"},
         ["usr/bin/modelsrvd", "etc/init.d/S60modelsrvd", "usr/lib/libtreescope.so.0"],
         ["usr/lib/python3.12/site-packages/treescope", "usr/lib/systemd"]),
        ("shell", {}, ["usr/bin/treescope", "usr/bin/treectl"], ["usr/bin/modelsrvd", "etc"]),
    ]:
        target = build / f"target-{name}"
        shutil.rmtree(target, ignore_errors=True)
        shutil.copytree(base, target, symlinks=True)
        make(target, copy, "finish", **choices)
        for file in has:
            check((target / file).exists(), f"{name}: {file} is missing")
        for file in lacks:
            check(not (target / file).exists(), f"{name}: {file} is there")
        script = target / "etc/init.d/S60modelsrvd"
        if script.exists():
            run("sh", "-n", str(script))
    users = make(None, SOURCES, "users", BR2_PACKAGE_TREESCOPE_MODELSRVD="y").split()
    check(users[:3] == ["modelsrvd", "-1", "modelsrvd"], f"users: {users}")
    # A file in the sources needs no hash, and none is invented.
    hashes = [line for line in (EXTERNAL / "package/treescope/treescope.hash").read_text().splitlines()
              if not line.startswith("#")]
    check(not hashes, f"hashes: {hashes}")


def main() -> None:
    build = Path(sys.argv[1]).resolve()
    try:
        check_yocto(build)
        check_buildroot(build)
    except Wrong as wrong:
        sys.exit(f"recipes: {wrong}")
    print("recipes: Yocto's and Buildroot's commands work")


main()
