#!/usr/bin/env python3
"""Prints what the packages of an archive hold: read_archive.py ARCHIVE

Written from harbix-archive(5): a line for each package, with the numbers of its records and of its entries, how many of
the records have an entry, and how many entries have no record. Names are bytes, which Python shows as surrogates.
"""
import os
import re
import sys
import tarfile

METADATA = ".backup.metadata"
WHITE = " \t\n\r\f\v"


def begins_package(item):
    """Only these places hold a manifest; elsewhere it is a file of the user's."""
    places = r"/app/[^/]+/(bin|appdata|pps)|/(media|dtm)/[^/]+|/settings"
    return item.isfile() and re.fullmatch(f"({places})/{re.escape(METADATA)}", item.name, re.DOTALL)


def attributes(text):
    """The attributes of a manifest, by the four rules of reading."""
    at = 0
    while (end := text.find(":", at)) != -1:
        key, at = text[at:end], end + 1
        if not key or key[0] in WHITE:
            continue
        while at < len(text) and text[at] in WHITE:
            at += 1
        value = ""
        while True:
            end = text.find("\n", at)
            end = len(text) if end == -1 else end
            value, at = value + text[at:end], end + 1
            if not text.startswith(" ", at):
                break
        yield key, value
        while at < len(text) and text[at] in WHITE:
            at += 1


def unescaped(path):
    return re.sub(r"\\(.)", lambda found: "\n" if found[1] == "n" else found[1], path, flags=re.DOTALL)


def entry_names(name, text):
    """The name of the entry of each record of the package called `name`, and whether an item existed."""
    part = name.split("/")[1]
    if part != "app":
        # Pairs of lines, exact as such: a record ends where the next one begins.
        prefix = "/settings" if part == "settings" else f"/{part}/"
        for record in re.split(r"\n(?=File: )", text.removesuffix("\n\n")):
            if record.startswith("File: "):
                yield prefix + record.split("\n", 1)[1], True
        return
    pairs = list(attributes(text))
    first = {key: value for key, value in reversed(pairs)}
    folder, kind = first["App-Directory"], name.rsplit("/", 1)[1]
    base = {"bin": f"/apps/{folder}", "appdata": f"/accounts/1000/appdata/{folder}", "pps": ""}[kind]
    for key, value in pairs:
        if key != "File":
            continue
        mode, path = 1, value
        if kind != "pps":
            _, mode, _, _, _, path = value.split(" ", 5)
            mode, path = int(mode, 8), unescaped(path)
        yield name + path.removeprefix(base), mode != 0


def report(name, expected, entries):
    met = sum(1 for path in expected if path in entries)
    strangers = sum(1 for path in entries if path not in expected)
    lost = sum(1 for path, existed in expected.items() if existed and path not in entries)
    print(f"{name}: {len(expected)} records, {len(entries)} entries, {met} met, {strangers} unknown, {lost} without entry")


def main(archive):
    name, expected, entries = None, {}, set()
    with tarfile.open(archive, "r|*", errors="surrogateescape") as tar:
        for item in tar:
            if begins_package(item):
                if name is not None:
                    report(name, expected, entries)
                text = os.fsdecode(tar.extractfile(item).read())
                name = item.name.removesuffix("/" + METADATA)
                expected, entries = dict(entry_names(name, text)), set()
            else:
                entries.add(item.name)
    if name is not None:
        report(name, expected, entries)


if __name__ == "__main__":
    # Names go out as the bytes that they are.
    sys.stdout.reconfigure(errors="surrogateescape")
    main(sys.argv[1])
