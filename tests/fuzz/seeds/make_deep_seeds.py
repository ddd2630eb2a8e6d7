#!/usr/bin/env python3
"""Writes the deep-nesting seeds in deep/: 200,000 nested arrays around one value, as an XML
property list, a binary property list and JSON. A parser that recurses once per level runs out of
stack on these; every fuzz target that reads plists or JSON starts from them (pass deep/ as a
second corpus folder)."""
import os
import struct

LEVELS = 200_000
HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "deep")


def xml_plist(levels):
    return ('<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">'
            + "<array>" * levels + "<true/>" + "</array>" * levels + "</plist>\n").encode()


def binary_plist(levels):
    # Object i is a one-element array holding object i + 1; the last object is true.
    body = bytearray(b"bplist00")
    offsets = []
    for i in range(levels):
        offsets.append(len(body))
        body += b"\xA1" + struct.pack(">I", i + 1)
    offsets.append(len(body))
    body += b"\x09"
    table = len(body)
    for offset in offsets:
        body += struct.pack(">I", offset)
    body += b"\x00" * 6 + bytes([4, 4]) + struct.pack(">QQQ", levels + 1, 0, table)
    return bytes(body)


def json_text(levels):
    return ("[" * levels + "true" + "]" * levels).encode()


def settings_with_deep_value(levels):
    # An ordinary settings file whose one extra key holds the deep part.
    return ('<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
            "<key>AutoBackup</key><true/><key>Extra</key>"
            + "<dict><key>k</key>" * levels + "<true/>" + "</dict>" * levels
            + "</dict></plist>\n").encode()


os.makedirs(HERE, exist_ok=True)
for name, content in [("deep-array.xml", xml_plist(LEVELS)),
                      ("deep-array.bplist", binary_plist(LEVELS)),
                      ("deep-array.json", json_text(LEVELS)),
                      ("deep-dict-in-settings.xml", settings_with_deep_value(LEVELS))]:
    with open(os.path.join(HERE, name), "wb") as out:
        out.write(content)
