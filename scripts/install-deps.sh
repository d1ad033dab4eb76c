#!/usr/bin/env bash
# Installs everything the project needs on a Debian machine. Idempotent: packages already present
# are not fetched again, and the service's npm packages follow its lock file.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  build-essential cmake ninja-build pkg-config git curl
  libcurl4-openssl-dev nlohmann-json3-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  libboost1.81-dev libssl-dev
  libturbojpeg0-dev
  # Qt Quick integration (qt/): headers and build tools (moc, qmltyperegistrar, qmlcachegen), the
  # QML modules the tests and the demo import, and the GL/Vulkan headers Qt6Gui's CMake package
  # looks for. The offscreen and xcb platform plugins come with libqt6gui6.
  qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-declarative-dev-tools
  qml6-module-qtqml qml6-module-qtqml-workerscript qml6-module-qtquick qml6-module-qtquick-controls
  qml6-module-qtquick-templates qml6-module-qtquick-layouts qml6-module-qtquick-window
  libgl-dev libglx-dev libegl-dev libvulkan-dev
  fonts-dejavu-core  # text in offscreen frames needs at least one font
  # The redaction leak test on the OpenGL scene graph: a virtual X server with Mesa's software GL.
  xvfb xauth libgl1-mesa-dri libglx-mesa0
  dbus-daemon  # dbus-run-session: a session bus of its own for the desktop host tests (screen saver)
  chromium  # the agent console's browser tests (tests/console): Chromium through playwright-core,
  firefox-esr  # and Firefox over WebDriver BiDi
  redis-server  # the reference service shared by several instances, in its tests and load run
)
# better-sqlite3 (the reference service's store) compiles on install: node-gyp needs python3 and make.
packages+=(python3)
command -v node >/dev/null 2>&1 || packages+=(nodejs)
command -v npm >/dev/null 2>&1 || packages+=(npm)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "Installing: ${missing[*]}"
  $sudo apt-get update
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi

if [ ! -d service/node_modules ] || [ service/package-lock.json -nt service/node_modules/.package-lock.json ]; then
  (cd service && npm ci --no-audit --no-fund)
fi
# The agent's console (served at /console) is bundled from service/console/; it takes under a second.
(cd service && npm run --silent build)

# The Socket.IO peer server of the sio conformance tests and benchmark.
if [ ! -d sio/conformance/node_modules ] || [ sio/conformance/package-lock.json -nt sio/conformance/node_modules/.package-lock.json ]; then
  (cd sio/conformance && npm ci --no-audit --no-fund)
fi
