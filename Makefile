# The two commands of the README: `make demo` and `make test`. Each installs what is missing first.
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps configure build demo test clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

demo: build
	@$(BUILD)/examples/kov_demo

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD)
