# Everything a fresh Debian 12 machine needs, in three steps: deps, build, test.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
WERROR := $(if $(CI),ON,OFF)

.PHONY: deps configure build test format clean

deps:
	@scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DTARVEL_WERROR=$(WERROR)

build: configure
	cmake --build $(BUILD_DIR)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure --timeout 600

format:
	git ls-files '*.cpp' '*.h' '*.mm' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
