# Entry points: `make test` installs what is missing, builds and runs the whole suite.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)

.PHONY: all setup configure build test check-windows bench clean format

all: build

setup:
	@bash scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j 2 --timeout 300

# Every source of src/ and tools/ compiled for Windows x86-64, syntax only (also one of the tests).
check-windows: configure
	@cmake --build $(BUILD_DIR) --target check-windows

bench: build
	@bash bench/run.sh $(BUILD_DIR)

format:
	@find src tests tools bench -name '*.h' -o -name '*.cpp' | xargs clang-format -i

clean:
	@rm -rf $(BUILD_DIR)
