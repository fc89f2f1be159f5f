# The two commands of the README: `make demo` and `make test`. Each installs what is missing first.
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps configure build python demo test test-sanitize test-tsan coverage fuzz fuzz-smoke \
	fuzz-build bench clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# The Python module alone, into $(BUILD)/python (PYTHONPATH=$(BUILD)/python /usr/bin/python3).
python: configure
	@cmake --build $(BUILD) -j $(JOBS) --target kov_python

# Packs, inspects, unpacks and reports the sample radio codeplug into out/.
demo: build
	@$(BUILD)/tools/kovtool demo --out out

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The whole suite under AddressSanitizer and UndefinedBehaviorSanitizer, leak checking on.
test-sanitize: deps
	@cmake -S . -B $(BUILD)-asan -DCMAKE_BUILD_TYPE=Debug -DKOV_SANITIZE=ON >/dev/null
	@cmake --build $(BUILD)-asan -j $(JOBS)
	@cd $(BUILD)-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)

# The declarative layer's suite under ThreadSanitizer, with its test of packs and unpacks on
# several threads over one layout while layouts are loaded and dropped beside them, and the
# arena's tests, which pass kept chunks between threads.
test-tsan: deps
	@cmake -S . -B $(BUILD)-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKOV_TSAN=ON >/dev/null
	@cmake --build $(BUILD)-tsan -j $(JOBS) --target kovjson_tests kov_tests
	@TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" $(BUILD)-tsan/kovjson/kovjson_tests
	@TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" $(BUILD)-tsan/kov_tests \
	  --gtest_filter='Arena.*'

# Line coverage of the library (kov/, tests and test helpers left out) from the test suite, built
# with gcov instrumentation in its own directory; gcovr prints each file and the total.
coverage:
	@scripts/install-deps --coverage
	@cmake -S . -B $(BUILD)-coverage -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=--coverage \
	  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
	@cmake --build $(BUILD)-coverage -j $(JOBS) --target kov_tests
	@find $(BUILD)-coverage -name '*.gcda' -delete
	@$(BUILD)-coverage/kov_tests --gtest_brief=1 >/dev/null
	@gcovr -r . --object-directory $(BUILD)-coverage --filter 'kov/' \
	  --exclude '.*_test\.cpp' --exclude 'kov/kovtest\.h' --exclude 'kov/kovgen\.h'

# libFuzzer targets (clang-14, AddressSanitizer, UndefinedBehaviorSanitizer): `make fuzz` runs
# each for FUZZ_SECONDS and fails on any finding; `make fuzz-smoke` is the short run of CI.
FUZZ_SECONDS ?= 60

fuzz-build:
	@scripts/install-deps --fuzz
	@cmake -S . -B $(BUILD)-fuzz -DCMAKE_CXX_COMPILER=clang++-14 -DKOV_FUZZ=ON \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD)-fuzz -j $(JOBS)

fuzz: fuzz-build
	@scripts/run-fuzz $(BUILD)-fuzz $(FUZZ_SECONDS)

fuzz-smoke: fuzz-build
	@scripts/run-fuzz $(BUILD)-fuzz 20

# The benchmarks, built for release in their own directory, then the peak memory of the W1 unpack,
# then the Python module against Python construct on W1 and the fleet example's images a second.
BENCH_FLAGS ?= --benchmark_repetitions=5 --benchmark_min_time=0.2
bench:
	@scripts/install-deps --bench
	@cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DKOV_BUILD_BENCH=ON \
	  -DKOV_BUILD_TESTS=OFF -DKOV_BUILD_EXAMPLES=OFF >/dev/null
	@cmake --build $(BUILD)-bench -j $(JOBS) --target kov_bench kov_w1_mem kov_w1_probe kov_python
	@$(BUILD)-bench/bench/kov_bench $(BENCH_FLAGS)
	@$(BUILD)-bench/bench/kov_w1_mem 30000
	@PYTHONPATH=$(BUILD)-bench/python /usr/bin/python3 bench/python_bench.py

clean:
	rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan $(BUILD)-fuzz $(BUILD)-bench $(BUILD)-coverage
