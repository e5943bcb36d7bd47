# Entry points: `make demo` shows a whole update served by nginx; `make test` runs the whole suite.
# Both install what is missing and build first.
BUILD_DIR ?= build
WINDOWS_BUILD_DIR ?= build-windows
JOBS ?= $(shell nproc)
# Builds share a compiler cache when there is one.
LAUNCHER := $(if $(shell command -v ccache),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)

.PHONY: all setup configure build demo test test-windows bench clean format

all: build

setup:
	@bash scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(LAUNCHER) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

test: build
	@cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j 2 --timeout 300

# The Windows x86-64 build (MinGW-w64, Qt for Windows from the toolchain cache) and its suite under
# Wine. The first run prepares the cache (scripts/windows-toolchain.sh); later runs find it complete.
# The Linux build comes first: its publisher makes the end-to-end test's channels.
test-windows: build
	@bash scripts/windows-toolchain.sh >/dev/null
	@cmake -S . -B $(WINDOWS_BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(LAUNCHER) \
		-DCMAKE_TOOLCHAIN_FILE=$(abspath cmake/mingw-w64-x86_64.cmake) -DCORE_LINUX_BUILD_DIR=$(abspath $(BUILD_DIR)) >/dev/null
	@cmake --build $(WINDOWS_BUILD_DIR) -j $(JOBS)
	@cd $(WINDOWS_BUILD_DIR) && ctest --output-on-failure -j 2 --timeout 600

bench: build
	@bash bench/run.sh $(BUILD_DIR)

format:
	@find src tests tools bench -name '*.h' -o -name '*.cpp' | xargs clang-format -i

clean:
	@rm -rf $(BUILD_DIR) $(WINDOWS_BUILD_DIR)
