# Everything a fresh Debian 12 machine needs, in three steps: deps, build, test.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
WERROR := $(if $(CI),ON,OFF)

.PHONY: deps configure build run test package format clean

deps:
	@scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DTARVEL_WERROR=$(WERROR)

build: configure
	cmake --build $(BUILD_DIR)

run: build
	BUILD_DIR=$(BUILD_DIR) scripts/run.sh

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure --timeout 600

# tarvel_<version>_<arch>.deb in the build folder.
package: build
	cd $(BUILD_DIR) && cpack --config CPackConfig.cmake

format:
	git ls-files '*.cpp' '*.h' '*.mm' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)

# The real codex, claude and opencode for the optional real-tools tests (ctest -L realtools),
# installed outside the repository; the tests look there and skip when they are missing.
export TARVEL_REAL_TOOLS_DIR ?= $(HOME)/.cache/tarvel-real-tools

.PHONY: real-tools
real-tools:
	npm install --prefix "$(TARVEL_REAL_TOOLS_DIR)" --no-audit --no-fund \
		@openai/codex @anthropic-ai/claude-code opencode-ai
	@# npm skips a platform package it failed to fetch without a word; each tool must start.
	for tool in codex claude opencode; do "$(TARVEL_REAL_TOOLS_DIR)/node_modules/.bin/$$tool" --version || exit 1; done
