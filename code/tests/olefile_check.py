#!/usr/bin/python3
"""Usage: olefile_check.py FOLDER

Every FOLDER/*.cfb has a manifest <file>.cfb.json listing its streams (path "A/B", size, CRC-32)
and storages. olefile must find exactly those, with those sizes and bytes, and `gsf list` the
same names and sizes. Exits 1 on any difference.
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


def check(path, manifest, problems):
    def differ(what, got, want):
        if got != want:
            problems.append("%s differ: got %s, expected %s" % (what, sorted(got), sorted(want)))

    sizes = {s["path"]: s["size"] for s in manifest["streams"]}
    want_dirs = set(manifest["storages"])
    # DEFECT_INCORRECT makes olefile raise on anything a sound file must not contain.
    with olefile.OleFileIO(path, raise_defects=olefile.DEFECT_INCORRECT) as ole:
        streams = {}
        for p in ole.listdir(streams=True, storages=False):
            data = ole.openstream(p).read()
            streams["/".join(p)] = (ole.get_size(p), len(data), zlib.crc32(data))
        want = {s["path"]: (s["size"], s["size"], s["crc32"]) for s in manifest["streams"]}
        differ("olefile streams (size, bytes read, CRC-32)", streams.items(), want.items())
        differ("olefile storages", {"/".join(p) for p in ole.listdir(streams=False, storages=True)},
               want_dirs)
    run = subprocess.run(["gsf", "list", path], capture_output=True, check=True)
    files, dirs = {}, set()
    for line in run.stdout.decode("utf-8", "replace").splitlines()[1:]:
        match = GSF_LINE.match(line)
        if match and match.group(3) != "*root*":
            kind, size, name = match.groups()
            # gsf shows a storage without children as a file of size 0.
            if kind == "d" or (name in want_dirs and size == "0"):
                dirs.add(name)
            else:
                files[name] = int(size)
    differ("gsf streams", files.items(), sizes.items())
    differ("gsf storages", dirs, want_dirs)


def main():
    files = sorted(glob.glob(os.path.join(sys.argv[1], "*.cfb"))) if len(sys.argv) == 2 else []
    if not files:
        print(__doc__)
        return 2
    failed = 0
    for path in files:
        problems = []
        try:
            with open(path + ".json", encoding="utf-8") as f:
                check(path, json.load(f), problems)
        except Exception as e:  # any reader failure is a finding about this file
            problems.append("%s: %s" % (type(e).__name__, e))
        print("%s: %s" % (os.path.basename(path), "FAILED" if problems else "ok"))
        print("".join("  %s\n" % p for p in problems), end="")
        failed += bool(problems)
    print("%d of %d files failed" % (failed, len(files)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
