#!/usr/bin/env bash
# Builds the site: the pages of docs/ by Sphinx, with search, and the reference of the headers by
# Doxygen in its folder api/. A warning of either is an error.
#   docs/build.sh [FOLDER]     out/site without it
set -euo pipefail
cd "$(dirname "$0")/.."
. ./cmake/setup.sh
site=${1:-out/site}

need_packages doxygen python3-sphinx python3-myst-parser furo
rm -rf "$site"
mkdir -p "$site" build
version=$(sed -n 's/^project(QX_db VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
/usr/bin/sphinx-build -q -W --keep-going -D release="$version" -b html -d build/doctrees docs "$site"
{ cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = $site"; echo "PROJECT_NUMBER = $version"; } | doxygen -
echo "The site begins at $site/index.html"
