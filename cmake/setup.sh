# For run.sh and test.sh: installs missing packages, configures and builds.

# What the library, the command line and the examples need.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config lld rapidjson-dev libsqlite3-dev libfmt-dev
                libcli11-dev libxxhash-dev libicu-dev libcurl4-openssl-dev libssl-dev)
# What the tests need on top.
TEST_PACKAGES=(libgtest-dev librapidcheck-dev libvalijson-dev clang libclang-rt-14-dev clang-format xz-utils qt6-base-dev
               libocct-foundation-dev libocct-modeling-data-dev
               libocct-modeling-algorithms-dev libocct-data-exchange-dev libocct-ocaf-dev libtbb-dev)

# need_packages PACKAGE...: installs those that are missing.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing ${missing[*]}"
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
    --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures and builds, quietly unless it fails.
build() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  echo "Building ($preset)"
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${*:+--target "$@"}; } \
      >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    return 1
  fi
}
