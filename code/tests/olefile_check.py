#!/usr/bin/python3
"""Checks compound files with two outside readers.

Usage: olefile_check.py FOLDER

Every FOLDER/*.cfb has a manifest FOLDER/<file>.cfb.json listing its streams (path as a list of
names, size, CRC-32 of the bytes) and its storages. olefile must find exactly those storages and
streams with those sizes and bytes, and `gsf list` the same names and sizes. Exits 1 on any
difference.
"""
import glob
import json
import os
import re
import subprocess
import sys
import zlib

import olefile

# "f  [YYYY-MM-DD hh:mm:ss]  SIZE NAME": the time only when the entry carries one.
GSF_LINE = re.compile(r"^([df])\s+(?:\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\s+)?(\d+) (.*)$")


def differ(what, got, want, problems):
    if got != want:
        problems.append("%s differ: got %s, expected %s" % (what, sorted(got), sorted(want)))


def check_olefile(path, manifest, problems):
    # DEFECT_INCORRECT makes olefile raise on anything a sound file must not contain.
    with olefile.OleFileIO(path, raise_defects=olefile.DEFECT_INCORRECT) as ole:
        streams = {}
        for p in ole.listdir(streams=True, storages=False):
            data = ole.openstream(p).read()
            streams[tuple(p)] = (ole.get_size(p), len(data), zlib.crc32(data))
        want = {tuple(s["path"]): (s["size"], s["size"], s["crc32"]) for s in manifest["streams"]}
        differ("olefile streams (size, bytes read, CRC-32)", streams.items(), want.items(),
               problems)
        differ("olefile storages", {tuple(p) for p in ole.listdir(streams=False, storages=True)},
               {tuple(p) for p in manifest["storages"]}, problems)


def check_gsf(path, manifest, problems):
    run = subprocess.run(["gsf", "list", path], capture_output=True)
    if run.returncode != 0:
        problems.append("gsf list failed: %s" % run.stderr.decode("utf-8", "replace").strip())
        return
    files, dirs = {}, set()
    for line in run.stdout.decode("utf-8", "replace").splitlines()[1:]:
        match = GSF_LINE.match(line)
        if match and match.group(3) != "*root*":
            kind, size, name = match.groups()
            if kind == "f":
                files[name] = int(size)
            else:
                dirs.add(name)
    want_dirs = {"/".join(p) for p in manifest["storages"]}
    # gsf shows a storage without children as a file of size 0.
    for name in want_dirs - dirs:
        if files.get(name) == 0:
            del files[name]
            dirs.add(name)
    differ("gsf streams", files.items(),
           {"/".join(s["path"]): s["size"] for s in manifest["streams"]}.items(), problems)
    differ("gsf storages", dirs, want_dirs, problems)


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
        print("%s: %s" % (os.path.basename(path), "FAILED" if problems else "ok"))
        for p in problems:
            print("  " + p)
        failed += bool(problems)
    print("%d of %d files failed" % (failed, len(files)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
