#!/usr/bin/env bash
# Installs every Debian package that building, testing, benchmarking and running
# Klipora needs. Safe to run again: it installs only what is missing.
set -euo pipefail

packages=(
  # toolchain
  g++ cmake ninja-build pkg-config make
  # libraries the code links against
  libsqlite3-dev libssl-dev libvips-dev libexif-dev nlohmann-json3-dev
  libasio-dev libexpected-dev libcli11-dev libpcre2-dev libicu-dev
  libtesseract-dev tesseract-ocr tesseract-ocr-eng
  libcairo2-dev libpango1.0-dev fonts-dejavu-core
  # the faces the text-recognition corpus draws in (Sans, Mono, Serif): without
  # them fontconfig substitutes whatever is installed and the figures move
  fonts-liberation2
  # faces, people, QR codes and tilt: OpenCV's object detection (core and
  # imgproc come with it) and the face models of opencv-data
  libopencv-objdetect-dev opencv-data
  # the text of QR codes (Debian's OpenCV finds codes but cannot decode them)
  libzbar-dev
  # colour emoji for the emoji stamps of markup
  fonts-noto-color-emoji
  # perspective correction and subject segmentation of markup (core and imgproc only)
  libopencv-core-dev libopencv-imgproc-dev
  # nouns and adjectives of English, for the keywords of user categories
  wordnet-base
  # the application a screenshot shows, asked of the X server
  libxcb1-dev
  # the user coming back (unlock, wake from sleep), told by logind over D-Bus,
  # and the desktop settings some screenshot tools keep their folder in
  libglib2.0-dev
  # the desktop window: Qt 6 Widgets and QTest (qt6-base-dev), its platform
  # plugins (xcb for a desktop, offscreen for tests and screenshots) and the
  # freedesktop icon theme its sidebar and toolbar draw from (symbolic SVG
  # icons, drawn by the SVG plugins of libqt6svg6)
  qt6-base-dev qt6-qpa-plugins adwaita-icon-theme libqt6svg6
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev libvips-tools sqlite3 coreutils openssl
  # a real screenshot tool on a virtual screen, for the watcher's end-to-end test
  scrot xvfb xauth
  # a private message bus on which the tests play logind
  dbus-daemon
  # glib-compile-schemas, for the test that reads desktop settings
  libglib2.0-bin
  # a chat in Chinese, drawn and read back, for the end-to-end test of CJK search
  tesseract-ocr-chi-sim fonts-wqy-microhei
  # fuzzing with libFuzzer and the sanitizers (make fuzz)
  clang libclang-rt-14-dev
  # the Debian package and its checks (make deb, make deb-test)
  dpkg-dev fakeroot lintian systemd
)

# More languages for text recognition, as Tesseract codes or Debian names:
# KLIPORA_OCR_LANGUAGES="chi-sim jpn kor" make build
for code in ${KLIPORA_OCR_LANGUAGES:-}; do
  code="${code,,}"
  code="${code#tesseract-ocr-}"
  code="${code//_/-}"
  if [[ ! "$code" =~ ^[a-z0-9-]+$ ]]; then
    echo "setup: \"$code\" in KLIPORA_OCR_LANGUAGES is no Tesseract language code" >&2
    exit 1
  fi
  packages+=("tesseract-ocr-$code")
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
