# Front door. `make test` is what CI runs; `make demo` shows the daemon at work.
BUILD      ?= build
ASAN_BUILD ?= build/asan
MIPS_BUILD ?= build/mips
FUZZ_BUILD ?= build/fuzz
FUZZ_SECONDS ?= 1800
JOBS       ?= 2
# The end-to-end tests mostly wait on their daemons: three at a time keep two
# cores busy.
TEST_JOBS  ?= 3
CMAKE_GEN  := -G Ninja

.PHONY: all build test unit asan demo bench soak deps clean format format-check deps-mips mips \
	test-mips fuzz-build fuzz-smoke fuzz

all: build

deps:
	@./scripts/deps.sh

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

unit: build
	cd $(BUILD) && ctest --output-on-failure -j $(TEST_JOBS)

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DTALLYD_SANITIZE=ON

asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
		ctest --output-on-failure -j $(TEST_JOBS)

# The fuzz targets: their own build with clang, everything instrumented for
# libFuzzer, ASan and UBSan. fuzz-smoke gives each target a few seconds on
# the seeds (part of make test); fuzz runs them all for FUZZ_SECONDS and
# keeps the new inputs in $(FUZZ_BUILD)/fuzz/corpus.
$(FUZZ_BUILD)/build.ninja: | deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DTALLYD_FUZZ=ON -DTALLYD_TESTS=OFF

fuzz-build: deps $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_all

fuzz-smoke: fuzz-build
	./scripts/fuzz.sh $(FUZZ_BUILD) smoke 8

fuzz: fuzz-build
	./scripts/fuzz.sh $(FUZZ_BUILD) long $(FUZZ_SECONDS)

test: format-check unit asan fuzz-smoke

# The controller's ABI: 32-bit big-endian MIPS, run under qemu-user. The target's
# libraries come from Debian's sources (scripts/mips-deps.sh); unit tests run
# under qemu through CTest, the host's e2e binary drives the MIPS daemon and
# tools (TALLYD_TEST_LAUNCHER), and the identity cases must give the same
# bytes on both builds.
MIPS_RUN := qemu-mips -L /usr/mips-linux-gnu

deps-mips:
	@./scripts/deps.sh mips

mips: deps-mips
	JOBS=$(JOBS) ./scripts/mips-deps.sh $(MIPS_BUILD)/deps
	@[ -f $(MIPS_BUILD)/build.ninja ] || cmake -S . -B $(MIPS_BUILD) $(CMAKE_GEN) \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_TOOLCHAIN_FILE=cmake/mips-toolchain.cmake \
		-DTALLYD_MIPS_PREFIX=$(abspath $(MIPS_BUILD))/deps/prefix
	cmake --build $(MIPS_BUILD) -j $(JOBS)

test-mips: build mips
	cd $(MIPS_BUILD) && ctest --output-on-failure -j $(JOBS)
	TALLYD_TEST_BIN_DIR=$(abspath $(MIPS_BUILD)) TALLYD_TEST_LAUNCHER="$(MIPS_RUN)" \
		TALLYD_TEST_SLOWDOWN=4 $(BUILD)/tests/e2e --gtest_brief=1
	./scripts/identity.sh $(BUILD) $(MIPS_BUILD) "$(MIPS_RUN)"

demo: build
	./scripts/demo.sh $(BUILD)

bench: deps
	cmake -S . -B $(BUILD)/bench $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DTALLYD_BENCH=ON -DTALLYD_TESTS=OFF
	cmake --build $(BUILD)/bench -j $(JOBS)
	./scripts/bench.sh $(BUILD)/bench

# Sustained load (not part of make test): 10,000 datagrams a second for 60 s
# while the simulator feeds flows at 60 times real speed.
soak: build
	./scripts/soak.sh $(BUILD) 60 10000

format:
	clang-format -i $$(git ls-files '*.cc' '*.h')

# Every C++ file as clang-format would write it; `make format` mends drift.
format-check:
	clang-format --dry-run -Werror $$(git ls-files '*.cc' '*.h')

clean:
	rm -rf $(BUILD)
