#!/usr/bin/env python3
"""Signs a release package with the release key and prints its manifest entry.

    scripts/sign-release.py --key KEY.pem --version 1.1.0 [--build 7] [--notes TEXT]
        [--minimum-glibc 2.36] --download https://HOST/PATH/PACKAGE.tar.gz PACKAGE.tar.gz

KEY.pem is the Ed25519 private key (openssl genpkey -algorithm ed25519). The package is signed
as a whole; the signature (base64) goes into the manifest's "signature" and into PACKAGE.sig
beside the package, where the update helper reads it when it is started by hand. The manifest
(version, build, download, notes, sha256, signature, minimum_macOS) is printed on standard
output; the public half of the key, the value of the build's VELT_UPDATE_PUBLIC_KEY that accepts
these packages, on standard error.
"""
import argparse
import base64
import hashlib
import json
import os
import subprocess
import sys
import tempfile


def openssl(*arguments):
    result = subprocess.run(["openssl", *arguments], capture_output=True)
    if result.returncode != 0:
        sys.exit("openssl %s failed: %s" % (arguments[0], result.stderr.decode(errors="replace")))
    return result.stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--key", required=True, help="Ed25519 private key, PEM")
    parser.add_argument("--version", required=True)
    parser.add_argument("--build")
    parser.add_argument("--notes")
    parser.add_argument("--minimum-glibc", help='written as "minimum_macOS"')
    parser.add_argument("--download", required=True, help="https address of the package")
    parser.add_argument("package")
    options = parser.parse_args()
    if not options.download.lower().startswith("https://"):
        sys.exit("the download address must use https")

    signature = openssl("pkeyutl", "-sign", "-rawin", "-inkey", options.key,
                        "-in", options.package)
    public_key = openssl("pkey", "-in", options.key, "-pubout", "-outform", "DER")
    if len(signature) != 64 or len(public_key) != 44:
        sys.exit("%s is not an Ed25519 key" % options.key)
    # What the program will do: verify with the public half alone.
    with tempfile.TemporaryDirectory() as folder:
        public_pem = os.path.join(folder, "public.pem")
        signature_file = os.path.join(folder, "signature")
        openssl("pkey", "-in", options.key, "-pubout", "-out", public_pem)
        with open(signature_file, "wb") as f:
            f.write(signature)
        openssl("pkeyutl", "-verify", "-rawin", "-pubin", "-inkey", public_pem,
                "-in", options.package, "-sigfile", signature_file)

    digest = hashlib.sha256()
    with open(options.package, "rb") as f:
        for chunk in iter(lambda: f.read(1 << 20), b""):
            digest.update(chunk)
    encoded = base64.b64encode(signature).decode()
    with open(options.package + ".sig", "w") as f:
        f.write(encoded + "\n")

    entry = {"version": options.version, "build": options.build, "download": options.download,
             "notes": options.notes, "sha256": digest.hexdigest(), "signature": encoded,
             "minimum_macOS": options.minimum_glibc}
    json.dump({k: v for k, v in entry.items() if v is not None}, sys.stdout, indent=2)
    print()
    print("public key: " + base64.b64encode(public_key[-32:]).decode(), file=sys.stderr)


main()
