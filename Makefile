# Front door. `make test` is what CI runs; `make demo` shows the daemon at work.
BUILD      ?= build
ASAN_BUILD ?= build/asan
JOBS       ?= 2
CMAKE_GEN  := -G Ninja

.PHONY: all build test unit asan demo bench deps clean format format-check

all: build

deps:
	@./scripts/deps.sh

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

unit: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DTALLYD_SANITIZE=ON

asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
		ctest --output-on-failure -j $(JOBS)

test: format-check unit asan

demo: build
	./scripts/demo.sh $(BUILD)

bench: deps
	cmake -S . -B $(BUILD)/bench $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DTALLYD_BENCH=ON -DTALLYD_TESTS=OFF
	cmake --build $(BUILD)/bench -j $(JOBS)
	./scripts/bench.sh $(BUILD)/bench

format:
	clang-format -i $$(git ls-files '*.cc' '*.h')

# Every C++ file as clang-format would write it; `make format` mends drift.
format-check:
	clang-format --dry-run -Werror $$(git ls-files '*.cc' '*.h')

clean:
	rm -rf $(BUILD)
