#!/usr/bin/python3
"""Checks that shared objects load on every Linux with glibc 2.17 or later and need no C++
runtime, the way auditwheel checks wheels: the libraries they name (DT_NEEDED) and the version of
every symbol they import.

    scripts/elf_policy.py LIBRARY...           # files
    scripts/elf_policy.py --archive PLUGIN     # every library inside a .xojo_plugin

Prints one line per library (architecture, libraries named, newest glibc version imported) and
one line per violation, naming the symbol and its version; exits 1 on any violation.
"""
import argparse
import io
import re
import sys
import zipfile

from elftools.elf.elffile import ELFFile

ALLOWED_NEEDED = re.compile(
    r"^(libc\.so\.6|libm\.so\.6|libdl\.so\.2|libpthread\.so\.0|libgcc_s\.so\.1|ld-linux[-\w.]*)$")
# The newest version of each allowed namespace: glibc 2.17 (the manylinux2014 floor, and the
# first glibc on aarch64) and the libgcc_s of the same systems (GCC 4.8).
FLOORS = {"GLIBC": (2, 17), "GCC": (4, 8, 0)}
MACHINES = {"EM_X86_64": "x86-64", "EM_AARCH64": "arm64"}


def version_tuple(text):
    return tuple(int(part) for part in text.split("."))


def check_version(version):
    """None if an import of VERSION is allowed, else why not."""
    namespace, _, number = version.partition("_")
    if namespace not in FLOORS or not re.fullmatch(r"\d+(\.\d+)*", number):
        return "a version outside glibc and libgcc_s"
    floor = FLOORS[namespace]
    if version_tuple(number) > floor:
        return "newer than %s_%s" % (namespace, ".".join(map(str, floor)))
    return None


def check(name, stream):
    """Returns the violations of one ELF file, after printing its summary."""
    elf = ELFFile(stream)
    problems = []
    machine = MACHINES.get(elf["e_machine"])
    if machine is None:
        problems.append("machine %s is not one we ship" % elf["e_machine"])
    dynamic = elf.get_section_by_name(".dynamic")
    needed = [t.needed for t in dynamic.iter_tags() if t.entry.d_tag == "DT_NEEDED"]
    for library in needed:
        if not ALLOWED_NEEDED.match(library):
            problems.append("needs %s" % library)

    versions = {}  # version index -> version name, from .gnu.version_r
    verneed = elf.get_section_by_name(".gnu.version_r")
    if verneed is not None:
        for _, auxiliaries in verneed.iter_versions():
            for aux in auxiliaries:
                versions[aux["vna_other"]] = aux.name
    versym = elf.get_section_by_name(".gnu.version")
    newest_glibc = (0,)
    for index, symbol in enumerate(elf.get_section_by_name(".dynsym").iter_symbols()):
        if index == 0:
            continue
        binding = symbol["st_info"]["bind"]
        if symbol["st_shndx"] != "SHN_UNDEF":
            if binding != "STB_LOCAL" and re.match(r"_Z|__cxa_|__gxx_", symbol.name):
                problems.append("exports %s (the C++ runtime must stay inside)" % symbol.name)
            continue
        ndx = versym.get_symbol(index)["ndx"] if versym is not None else "VER_NDX_GLOBAL"
        version = versions.get(ndx) if isinstance(ndx, int) else None
        if version is None:
            # An unversioned import must be optional (weak): nothing promises to provide it.
            if binding != "STB_WEAK":
                problems.append("imports %s without a version" % symbol.name)
            continue
        why = check_version(version)
        if why:
            problems.append("imports %s@%s: %s" % (symbol.name, version, why))
        elif version.startswith("GLIBC_"):
            newest_glibc = max(newest_glibc, version_tuple(version[len("GLIBC_"):]))
    print("%s: %s, needs %s, newest import GLIBC_%s" % (
        name, machine or elf["e_machine"], " ".join(needed) or "nothing",
        ".".join(map(str, newest_glibc))))
    return ["%s: %s" % (name, p) for p in problems]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--archive", action="store_true",
                        help="the files are plugin archives: check every library inside")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()
    problems = []
    for path in args.files:
        if not args.archive:
            with open(path, "rb") as f:
                problems += check(path, f)
            continue
        with zipfile.ZipFile(path) as archive:
            libraries = [n for n in archive.namelist() if re.search(r"\.so(\.\d+)*$", n)]
            if not libraries:
                problems.append("%s: holds no library" % path)
            for member in libraries:
                problems += check(member, io.BytesIO(archive.read(member)))
    for p in problems:
        print(p, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
