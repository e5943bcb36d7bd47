# Entry points: `make demo` shows a whole update served by nginx; `make test` runs the whole suite.
# Both install what is missing and build first.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)

.PHONY: all setup configure build demo test check-windows bench clean format

all: build

setup:
	@bash scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

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
