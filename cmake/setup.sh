# For run.sh, test.sh and the scripts of bench/ and packaging/: installs missing packages, chooses
# the components, configures and builds.

# What the library, the command line and the examples need.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config lld rapidjson-dev libsqlite3-dev libfmt-dev
                libcli11-dev libxxhash-dev libicu-dev libcurl4-openssl-dev libssl-dev
                libpugixml-dev zlib1g-dev liblz4-dev libboost-dev libedit-dev)
# What the tests need on top.
TEST_PACKAGES=(git libgtest-dev librapidcheck-dev libvalijson-dev clang libclang-rt-14-dev llvm
               clang-format xz-utils mmdebstrap mount chromium chromium-headless-shell python3-pytest
               python3-pandas python3-hypothesis python3-pip python3-setuptools python3-wheel
               python3-venv mypy groff-base mandoc zsh fish sqlite3 exfatprogs exfat-fuse)
# Other programs that read what the exports write: for the nightly tests only, as they drag in much.
ORACLE_PACKAGES=(python3-vtk9 python3-meshio python3-gmsh netcdf-bin)

# The components: switch of CMake | what it gives | what it rests on | packages | "main" where the
# main job shows it, so that ./run.sh installs it, too.
COMPONENTS=(
  "QX_OCCT|CAD files|Open CASCADE|libocct-foundation-dev libocct-modeling-data-dev \
libocct-modeling-algorithms-dev libocct-data-exchange-dev libocct-ocaf-dev libtbb-dev|"
  "QX_QT|selection lists on Qt widgets|Qt 6|qt6-base-dev|"
  "QX_VIEWER|the viewer in the browser|npm, esbuild or cpp-httplib|libcpp-httplib-dev \
esbuild $(command -v npm >/dev/null || echo npm)|main"  # npm's package drags in hundreds
  "QX_EXODUS|Exodus files|netCDF|libnetcdf-dev|"
  "QX_CGNS|CGNS files|HDF5|libhdf5-dev|"
  "QX_MED|MED files|HDF5|libhdf5-dev|"
  "QX_PYTHON|the Python package|pybind11|pybind11-dev python3-dev python3-numpy|"
)

# stop MESSAGE: ends the script with one line.
stop() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

is_installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'ok installed'
}

# missing_of PACKAGE...: prints those that are not installed.
missing_of() {
  local package
  for package in "$@"; do is_installed "$package" || printf '%s ' "$package"; done
}

# need_packages PACKAGE...: installs those that are missing, all of them or none.
need_packages() {
  command -v dpkg-query apt-get >/dev/null ||
    stop "this system has no apt-get: install the packages that README.md lists under Dependencies, then configure with cmake --preset release"
  local missing as_root=()
  read -ra missing <<<"$(missing_of "$@")"
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null && sudo -v ||
      stop "no right to install packages: have an administrator run: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  mkdir -p build
  # Every index must be reachable, and every package fetched, before the first is unpacked.
  "${as_root[@]}" apt-get update -qq -o APT::Update::Error-Mode=any >build/packages.log 2>&1 ||
    stop "the package sources cannot be reached: check the network and /etc/apt ($(tail -n 1 build/packages.log))"
  local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq
                 --no-install-recommends)
  { "${install[@]}" --download-only "${missing[@]}" && "${install[@]}" "${missing[@]}"; } \
      >build/packages.log 2>&1 ||
    stop "packages cannot be installed; nothing was built: $(grep -m 1 '^E:' build/packages.log || tail -n 1 build/packages.log)"
}

# npm_answers: whether what the page is made of is here, or can be had.
npm_answers() {
  [ -e build/release/viewer/npm/installed ] || npm view three version >/dev/null 2>&1
}

# choose_components all|installed: sets SWITCHES for CMake, one for each component. With "all" what
# they need is installed, or the script stops; with "installed" a component is on where its packages
# are there already or, for one of the main job, can be had; each that is left out is told.
# QX_TESTS follows TEST_PACKAGES in the same way, without a word.
choose_components() {
  local which=$1 row switch what rests_on packages main
  SWITCHES=()
  for row in "${COMPONENTS[@]}"; do
    IFS='|' read -r switch what rests_on packages main <<<"$row"
    # shellcheck disable=SC2086  # a list of packages
    if [ "$which" = all ]; then
      need_packages $packages
    elif [ "$main" = main ] && ! (need_packages $packages); then
      packages="none that can be had"
    fi
    if [ -n "$(missing_of $packages)" ]; then
      echo "without $what: $rests_on is not installed; ./run.sh --all installs it"
      SWITCHES+=("-D$switch=OFF")
    elif [ "$which/$switch" = installed/QX_VIEWER ] && ! npm_answers; then
      echo "without $what: the npm registry cannot be reached; run ./run.sh again when it can"
      SWITCHES+=("-D$switch=OFF")
    else
      SWITCHES+=("-D$switch=ON")
    fi
  done
  if [ "$which" = all ] || [ -z "$(missing_of "${TEST_PACKAGES[@]}")" ]; then
    SWITCHES+=(-DQX_TESTS=ON)
  else
    SWITCHES+=(-DQX_TESTS=OFF)
  fi
}

# build PRESET [TARGET...]: configures with SWITCHES and builds, quietly unless it fails. Sources of a
# folder are joined, which halves the work from nothing.
build() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  echo "Building ($preset)"
  if ! { cmake --preset "$preset" -DQX_JOIN_SOURCES=ON "${SWITCHES[@]}" && cmake --build --preset "$preset" ${*:+--target "$@"}; } \
      >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    stop "the $preset build failed; the whole log is $log"
  fi
}
