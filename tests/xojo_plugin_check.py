#!/usr/bin/python3
"""Checks a KXTString.xojo_plugin as the Xojo IDE would find it: one top folder
"KXTString/Build Resources/", one library per architecture folder, each built for the machine its
folder names and within the shipping policy. Then unpacks the archive with unzip and loads the
x86-64 library into kxt: its banner, `kxt list` and a few calls must match the unpacked build.

    xojo_plugin_check.py ARCHIVE --kxt KXT --built LIBRARY [--require FOLDER]

With --require, exits 77 (CTest's "skipped") when the archive has no library for FOLDER.
"""
import argparse
import os
import subprocess
import sys
import tempfile
import zipfile

from elftools.elf.elffile import ELFFile

TOP = "KXTString/Build Resources/"
LIBRARY = "libKXTString.Linux32.so.21160"
MACHINES = {"Linux x86-64": "EM_X86_64", "Linux arm64": "EM_AARCH64"}
BANNER = b"KXT Plugin, version 24.5, built Nov 11 2024\n"
# kxt runs, each compared between the unpacked build and the library from the archive.
RUNS = [
    ["list"],
    ["--host-version", "2012.0", "list"],
    ["call", "EncodingToURLKXT", "a b+c", "1"],
    ["--encoding", "call", "EncodingToISO8859KXT", "café"],
    ["--hex", "call", "StringXORKXT", "hex:00FF41", "hex:FF"],
    ["call", "RemoveAccentsKXT", "Ærøskøbing"],
    ["call", "HexstringKXT", "ABC", "2", "2", "[", "]", " ", ""],
    ["call", "LevenshteinDistanceKXT", "kitten", "sitting"],
    ["call", "StrKXT", "1.55"],
    ["call", "ConvertUnicodeToCharacterCompositionKXT", "e\u0301"],
    ["call", "EncodeEmailSubjectKXT", "Grüße aus Köln"],
]


def fail(message):
    print("xojo_plugin_check: " + message, file=sys.stderr)
    sys.exit(1)


def run(command):
    done = subprocess.run(command, capture_output=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("archive")
    parser.add_argument("--kxt", required=True)
    parser.add_argument("--built", required=True, help="the plugin as the build left it")
    parser.add_argument("--require", choices=sorted(MACHINES))
    args = parser.parse_args()

    with zipfile.ZipFile(args.archive) as archive:
        bad = archive.testzip()
        if bad:
            fail("%s is damaged in the archive" % bad)
        names = archive.namelist()
        outside = [n for n in names if not (n.startswith(TOP) or TOP.startswith(n))]
        if outside:
            fail("entries outside %s: %s" % (TOP, ", ".join(outside)))
        files = [n for n in names if not n.endswith("/")]
        folders = {}
        for name in files:
            folder, _, leaf = name[len(TOP):].partition("/")
            if folder not in MACHINES or leaf != LIBRARY:
                fail("unexpected file %s (want %s<%s>/%s)" % (name, TOP, "|".join(MACHINES), LIBRARY))
            with archive.open(name) as f:
                machine = ELFFile(f)["e_machine"]
            if machine != MACHINES[folder]:
                fail("%s is built for %s, not %s" % (name, machine, MACHINES[folder]))
            folders[folder] = name
        print("archive holds: " + ", ".join(sorted(folders)))
        if "Linux x86-64" not in folders:
            fail("no Linux x86-64 library")
        if args.require and args.require not in folders:
            print("no %s library in the archive: build it (scripts/build-arm64.sh), then "
                  "scripts/package.sh" % args.require)
            sys.exit(77)

    policy = os.path.join(os.path.dirname(__file__), "..", "scripts", "elf_policy.py")
    code, out, err = run([policy, "--archive", args.archive])
    sys.stdout.write(out.decode())
    if code != 0:
        fail("outside the shipping policy:\n" + err.decode())

    with tempfile.TemporaryDirectory() as unpacked:
        code, _, err = run(["unzip", "-q", args.archive, "-d", unpacked])
        if code != 0:
            fail("unzip failed: " + err.decode())
        library = os.path.join(unpacked, folders["Linux x86-64"])
        code, out, _ = run([library])
        if (code, out) != (0, BANNER):
            fail("the unpacked library started as a program gave %d %r" % (code, out))
        for command in RUNS:
            want = run([args.kxt, "--plugin", args.built] + command)
            got = run([args.kxt, "--plugin", library] + command)
            if want[0] != 0 or not want[1]:
                fail("kxt %s on the build failed: %r" % (" ".join(command), want))
            if got != want:
                fail("kxt %s: the archive's library gives %r, the build %r" % (
                    " ".join(command), got, want))
    print("banner and %d kxt runs match the build" % len(RUNS))


if __name__ == "__main__":
    main()
