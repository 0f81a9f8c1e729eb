#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into OUTDIR/<target>/: small real images made by
the real encoders (cjpeg, cwebp, img2webp, heif-enc), EXIF blocks, PNGs with colour chunks, and
settings, history and registry files. Usage: make_seeds.py OUTDIR"""

import base64
import json
import os
import struct
import subprocess
import sys
import tempfile
import zlib


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(width, height, extra=b"", color_type=2):
    channels = {0: 1, 2: 3, 6: 4}[color_type]
    raw = b"".join(b"\x00" + bytes((x * 7 + y * 3) % 256 for x in range(width * channels))
                   for y in range(height))
    ihdr = struct.pack(">IIBBBBB", width, height, 8, color_type, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) + extra + chunk(b"IDAT", zlib.compress(raw))
            + chunk(b"IEND", b""))


def ppm(width, height, seed=0):
    return b"P6\n%d %d\n255\n" % (width, height) + bytes(
        (x * 5 + y * 3 + seed) % 256 for y in range(height) for x in range(width * 3))


def exif(orientation, big_endian, kind=3, repeat=1):
    """An EXIF APP1 payload whose IFD0 holds the orientation `repeat` times as SHORT (3), LONG (4)
    or SLONG (9)."""
    order = b"MM" if big_endian else b"II"
    e = ">" if big_endian else "<"
    value = struct.pack(e + "HH", orientation, 0) if kind == 3 else struct.pack(e + "I", orientation)
    body = order + struct.pack(e + "HI", 42, 8) + struct.pack(e + "H", repeat)
    body += (struct.pack(e + "HHI", 0x0112, kind, 1) + value) * repeat + struct.pack(e + "I", 0)
    return b"Exif\x00\x00" + body


def with_app1(jpeg, payload):
    return jpeg[:2] + b"\xff\xe1" + struct.pack(">H", len(payload) + 2) + payload + jpeg[2:]


def write(folder, name, data):
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def main():
    out = sys.argv[1]
    images = os.path.join(out, "images")
    with tempfile.TemporaryDirectory() as work:
        source = os.path.join(work, "s.ppm")
        second = os.path.join(work, "t.ppm")
        source_png = os.path.join(work, "s.png")
        with open(source, "wb") as f:
            f.write(ppm(23, 17))
        with open(second, "wb") as f:
            f.write(ppm(23, 17, 99))
        with open(source_png, "wb") as f:
            f.write(png(23, 17, color_type=6))
        commands = {
            "baseline.jpg": ["cjpeg", "-quality", "80", "-outfile", "{o}", source],
            "progressive.jpg": ["cjpeg", "-progressive", "-outfile", "{o}", source],
            "gray.jpg": ["cjpeg", "-grayscale", "-outfile", "{o}", source],
            "lossy.webp": ["cwebp", "-quiet", source_png, "-o", "{o}"],
            "lossless.webp": ["cwebp", "-quiet", "-lossless", source_png, "-o", "{o}"],
            "animated.webp": ["img2webp", "-loop", "0", source, second, "-o", "{o}"],
            "still.heic": ["heif-enc", "-q", "50", "-o", "{o}", source_png],
            "still.avif": ["heif-enc", "-A", "-p", "speed=9", "-o", "{o}", source_png],
        }
        for name, command in commands.items():
            target = os.path.join(images, name)
            os.makedirs(images, exist_ok=True)
            subprocess.run([part.replace("{o}", target) for part in command], check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    write(images, "rgb.png", png(19, 11))
    write(images, "gray.png", png(7, 5, color_type=0))
    write(images, "apng.png", png(9, 9, chunk(b"acTL", struct.pack(">II", 2, 0))))
    write(images, "exif.png", png(9, 9, chunk(b"eXIf", exif(6, True)[6:])))
    write(images, "claims-huge.png",
          b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 100000, 100000, 8, 6, 0, 0, 0)))

    for index, (orientation, big, kind, repeat) in enumerate(
            [(1, True, 3, 1), (6, False, 3, 1), (8, True, 4, 1), (3, False, 9, 1), (6, True, 9, 1),
             (5, False, 3, 2), (9, False, 3, 1)]):
        write(os.path.join(out, "exif"), "exif%d" % index, exif(orientation, big, kind, repeat)[6:])
    write(os.path.join(out, "exif"), "loop", b"II*\x00\x08\x00\x00\x00\x01\x00" + b"\x08\x00" * 8)

    # Metadata: a selector byte (low two bits: 0 whole file, 1 EXIF, 2 XMP, 3 IPTC; the next two
    # bits choose the policy), then the input.
    metadata = os.path.join(out, "metadata")
    for index, (orientation, big) in enumerate([(6, False), (1, True)]):
        write(metadata, "exif%d" % index, bytes([1 + 4 * index]) + exif(orientation, big)[6:])
    write(metadata, "exif-loop", b"\x01II*\x00\x08\x00\x00\x00\x01\x00" + b"\x08\x00" * 8)
    write(metadata, "xmp", b"\x02" + b"<?xpacket begin='' id='W5M0MpCehiHzreSzNTczkc9d'?>"
          b"<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
          b"xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' "
          b"xmlns:tiff='http://ns.adobe.com/tiff/1.0/' xmlns:photoshop='http://ns.adobe.com/photoshop/1.0/' "
          b"tiff:Orientation='6' photoshop:City='Paris'/></rdf:RDF></x:xmpmeta><?xpacket end='w'?>")
    write(metadata, "iptc", b"\x03\x1c\x02\x00\x00\x02\x00\x04\x1c\x02\x5a\x00\x05Paris")
    for name in ("exif.png", "baseline.jpg", "still.heic", "lossy.webp"):
        with open(os.path.join(images, name), "rb") as f:
            write(metadata, "file-" + name, b"\x00" + f.read())
    with open(os.path.join(images, "baseline.jpg"), "rb") as f:
        write(metadata, "file-slong.jpg", b"\x00" + with_app1(f.read(), exif(6, True, 9)))
    # An ISO box file of no image brand, which exiv2 would read as a QuickTime video, looping.
    write(metadata, "file-quicktime-loop", base64.b64decode(
        "ADIAABhmdHlwaGUcAQAAAAAAAJFmMGgBSUkqAAAACAABZRwBAAAIAAgACAAIAAgAAAAAKZFmMGhlAAIAAADbABhoZQ"
        "ACAAAIAAgACAAAANsAGA=="))

    profile = b"\x00\x00\x02\x0cappl" + bytes(range(200))
    for index, extra in enumerate([b"", chunk(b"iCCP", b"x\x00\x00" + zlib.compress(profile)),
                                   chunk(b"sRGB", b"\x00") + chunk(b"gAMA", b"\x00\x00\xb1\x8f")]):
        write(os.path.join(out, "png_chunks"), "png%d" % index,
              bytes([4]) + png(5, 4, extra)[:64] + profile)
    write(os.path.join(out, "png_chunks"), "whole", bytes([40]) + png(6, 6) + profile)

    json_folder = os.path.join(out, "json_files")
    write(json_folder, "config", json.dumps({
        "watchDirectory": "/home/a/Photos", "enabled": True, "preset": "custom",
        "formatStrategy": "webp", "originalPolicy": "replace", "language": "en",
        "qualities": {"jpeg": 80, "png": 70, "webp": 75, "avif": 60, "heic": 65}}).encode())
    write(json_folder, "history", json.dumps([{
        "id": "0F8FAD5B-D9CB-469F-A165-70867728950E", "date": "2026-01-02T03:04:05Z",
        "sourceURL": "file:///home/a/p.jpg", "outputURL": "file:///home/a/p.jpg",
        "originalBytes": 1000, "outputBytes": 600, "status": "compressed"}]).encode())
    write(json_folder, "registry", json.dumps({"version": 1, "entries": {"/home/a/p.jpg": {
        "decision": "compressed", "fingerprint": {"headHash": 18446744073709551615, "size": 5,
                                                  "tailHash": 1},
        "updatedAt": 785000000.5, "settingsKey": "v2|preset:balanced", "source": "/home/a/p.png"}}},
        sort_keys=True).encode())
    write(json_folder, "broken", b'{"version": 1, "entries": {"/a": {"decision": 7}}')
    return 0


if __name__ == "__main__":
    sys.exit(main())
