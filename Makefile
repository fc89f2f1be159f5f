# The two commands of the README: `make demo` and `make test`. Each installs what is missing first.
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps configure build demo test test-sanitize clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

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

clean:
	rm -rf $(BUILD) $(BUILD)-asan
