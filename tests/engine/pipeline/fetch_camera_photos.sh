#!/bin/sh
# Fetches real camera photographs for the metadata tests into FOLDER, once: the 400×250
# screenshots of Debian's plasma-workspace-wallpapers carry the EXIF their cameras wrote.
# apt-get download needs no root. Exits non-zero, loudly, when they cannot be had.
# Usage: fetch_camera_photos.sh FOLDER
set -eu
folder=$1
names="FallenLeaf ColorfulCups Path"
mkdir -p "$folder"
cd "$folder"
exec 9>.lock
flock 9
missing=
for name in $names; do [ -s "$name.jpg" ] || missing=yes; done
[ -z "$missing" ] && exit 0
rm -f plasma-workspace-wallpapers_*.deb
if ! apt-get download -q plasma-workspace-wallpapers >download.log 2>&1; then
  cat download.log >&2
  echo "fetch_camera_photos: apt-get download plasma-workspace-wallpapers failed" >&2
  exit 1
fi
deb=$(ls plasma-workspace-wallpapers_*.deb)
for name in $names; do
  dpkg-deb --fsys-tarfile "$deb" |
    tar -xO "./usr/share/wallpapers/$name/contents/screenshot.jpg" >"$name.part"
  [ -s "$name.part" ] || { echo "fetch_camera_photos: no $name in $deb" >&2; exit 1; }
  mv "$name.part" "$name.jpg"
done
rm -f "$deb" download.log
