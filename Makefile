# Everything a fresh Debian 12 machine needs, in three steps: deps, build, test.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
WERROR := $(if $(CI),ON,OFF)
# A compiler launcher for every build folder, e.g. LAUNCHER=ccache; none by default.
LAUNCHER ?=
LAUNCHER_FLAG := $(if $(LAUNCHER),-DCMAKE_CXX_COMPILER_LAUNCHER=$(LAUNCHER))

# Qt and the system libraries are not instrumented: their own leaks are suppressed by name.
SANITIZER_ENV := ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0 \
	LSAN_OPTIONS=suppressions=$(CURDIR)/scripts/lsan-suppressions.txt:print_suppressions=0 \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Every test that needs no desktop, no real tools and no package (the target tarvel_unit_tests).
UNIT_TESTS := -LE '^(desktop|realtools|package)$$'

# `make test SANITIZE=address,undefined` builds those tests in a folder of their own and runs
# them under those sanitizers. Warnings are the normal build's business there.
SANITIZE ?=
ifneq ($(SANITIZE),)
BUILD_DIR := build-sanitize
WERROR := OFF
SANITIZE_FLAG := -DTARVEL_SANITIZE=$(SANITIZE)
BUILD_TARGET := --target tarvel_unit_tests
TEST_ENV := $(SANITIZER_ENV)
TEST_FILTER := $(UNIT_TESTS)
endif

.PHONY: deps configure build run test test-sanitize fuzz-configure fuzz test-instrumented package format clean

deps:
	@scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DTARVEL_WERROR=$(WERROR) \
		$(LAUNCHER_FLAG) $(SANITIZE_FLAG)

build: configure
	cmake --build $(BUILD_DIR) $(BUILD_TARGET)

# WAYLAND=1: a headless sway session with a foot terminal instead of the X desktop.
WAYLAND ?=
run: build
	BUILD_DIR=$(BUILD_DIR) WAYLAND=$(WAYLAND) scripts/run.sh

test: build
	$(TEST_ENV) ctest --test-dir $(BUILD_DIR) --output-on-failure --timeout 600 $(TEST_FILTER)
ifneq ($(CI),)
ifeq ($(SANITIZE),)
	$(MAKE) test-instrumented FUZZ_SECONDS=15
endif
endif

test-sanitize:
	$(MAKE) test SANITIZE=address,undefined

# The libFuzzer targets of fuzz/, built with clang in a folder of their own, each run for
# FUZZ_SECONDS from its seeds; fails on the first target that crashes.
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
fuzz-configure: deps
	cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
		-DTARVEL_FUZZ=ON $(LAUNCHER_FLAG)

fuzz: fuzz-configure
	cmake --build $(FUZZ_DIR) --target tarvel_fuzzers
	fuzz/run-fuzzers.sh $(FUZZ_DIR) $(FUZZ_SECONDS)

# The fuzz build is under ASan and UBSan too, so one build serves both: the unit and helper tests
# under the sanitizers, then each fuzz target. CI runs it after the tests, for 15 s a target.
test-instrumented: fuzz-configure
	cmake --build $(FUZZ_DIR) --target tarvel_unit_tests tarvel_fuzzers
	$(SANITIZER_ENV) ctest --test-dir $(FUZZ_DIR) --output-on-failure --timeout 600 $(UNIT_TESTS)
	fuzz/run-fuzzers.sh $(FUZZ_DIR) $(FUZZ_SECONDS)

# tarvel_<version>_<arch>.deb in the build folder.
package: build
	cd $(BUILD_DIR) && cpack --config CPackConfig.cmake

format:
	git ls-files '*.cpp' '*.h' '*.mm' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) build-sanitize $(FUZZ_DIR)

# The real codex, claude and opencode for the optional real-tools tests (ctest -L realtools),
# installed outside the repository; the tests look there and skip when they are missing.
export TARVEL_REAL_TOOLS_DIR ?= $(HOME)/.cache/tarvel-real-tools

.PHONY: real-tools
real-tools:
	npm install --prefix "$(TARVEL_REAL_TOOLS_DIR)" --no-audit --no-fund \
		@openai/codex @anthropic-ai/claude-code opencode-ai
	@# npm skips a platform package it failed to fetch without a word; each tool must start.
	for tool in codex claude opencode; do "$(TARVEL_REAL_TOOLS_DIR)/node_modules/.bin/$$tool" --version || exit 1; done
