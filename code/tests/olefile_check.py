#!/usr/bin/python3
"""Checks compound files written by the builder with two outside readers.

Usage: olefile_check.py FOLDER

Every FOLDER/*.cfb must have a manifest FOLDER/<file>.cfb.json listing its streams (path as a
list of names, size, CRC-32 of the bytes) and its storages. Each file is opened with olefile,
which must find exactly those storages and streams with those sizes and bytes, and listed with
`gsf list`, which must show the same names and sizes. Exits 1 on any difference.
"""
import glob
import json
import os
import re
import subprocess
import sys
import zlib

import olefile

GSF_LINE = re.compile(r"^([df])\s+(?:\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\s+)?(\d+) (.*)$")


def check_olefile(path, manifest, problems):
    # DEFECT_INCORRECT makes olefile raise on anything a sound file must not contain.
    with olefile.OleFileIO(path, raise_defects=olefile.DEFECT_INCORRECT) as ole:
        streams = {tuple(p) for p in ole.listdir(streams=True, storages=False)}
        storages = {tuple(p) for p in ole.listdir(streams=False, storages=True)}
        want_streams = {tuple(s["path"]): s for s in manifest["streams"]}
        want_storages = {tuple(p) for p in manifest["storages"]}
        if streams != set(want_streams):
            problems.append("olefile streams differ: missing %s, unexpected %s" % (
                sorted(set(want_streams) - streams), sorted(streams - set(want_streams))))
        if storages != want_storages:
            problems.append("olefile storages differ: missing %s, unexpected %s" % (
                sorted(want_storages - storages), sorted(storages - want_storages)))
        for key, want in want_streams.items():
            if key not in streams:
                continue
            name = "/".join(key)
            size = ole.get_size(list(key))
            if size != want["size"]:
                problems.append("olefile size of %s: %d, expected %d" % (name, size, want["size"]))
                continue
            data = ole.openstream(list(key)).read()
            if len(data) != want["size"] or zlib.crc32(data) != want["crc32"]:
                problems.append("olefile bytes of %s differ" % name)


def check_gsf(path, manifest, problems):
    run = subprocess.run(["gsf", "list", path], capture_output=True)
    if run.returncode != 0:
        problems.append("gsf list failed: %s" % run.stderr.decode("utf-8", "replace").strip())
        return
    files = {}
    dirs = set()
    for line in run.stdout.decode("utf-8", "replace").splitlines()[1:]:
        # "f  [YYYY-MM-DD hh:mm:ss]  SIZE NAME": the time only when the entry carries one.
        match = GSF_LINE.match(line)
        if not match or match.group(3) == "*root*":
            continue
        kind, size, name = match.groups()
        if kind == "f":
            files[name] = int(size)
        else:
            dirs.add(name)
    want_files = {"/".join(s["path"]): s["size"] for s in manifest["streams"]}
    want_dirs = {"/".join(p) for p in manifest["storages"]}
    # gsf shows a storage without children as a file of size 0.
    for name in want_dirs - dirs:
        if files.get(name) == 0:
            del files[name]
            dirs.add(name)
    if files != want_files:
        problems.append("gsf streams differ: got %s, expected %s" % (
            sorted(files.items()), sorted(want_files.items())))
    if dirs != want_dirs:
        problems.append("gsf storages differ: got %s, expected %s" % (sorted(dirs),
                                                                     sorted(want_dirs)))


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    files = sorted(glob.glob(os.path.join(sys.argv[1], "*.cfb")))
    if not files:
        print("no .cfb files in %s" % sys.argv[1])
        return 1
    failed = 0
    for path in files:
        problems = []
        try:
            with open(path + ".json", encoding="utf-8") as f:
                manifest = json.load(f)
            check_olefile(path, manifest, problems)
            check_gsf(path, manifest, problems)
        except Exception as e:  # any reader failure is a finding about this file
            problems.append("%s: %s" % (type(e).__name__, e))
        status = "ok" if not problems else "FAILED"
        print("%s: %s" % (os.path.basename(path), status))
        for p in problems:
            print("  " + p)
        failed += bool(problems)
    print("%d of %d files failed" % (failed, len(files)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
