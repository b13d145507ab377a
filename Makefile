# Two commands do everything on a fresh Debian 12 machine:
#   make demo   - set up, build and show kvdiag on a sample installation
#   make test   - set up, build and pass the whole test suite under Wine
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
TOOLCHAIN := $(CURDIR)/cmake/llvm-mingw-w64-x86_64.cmake

.PHONY: all setup configure build prefix test demo bench install clean

all: build

setup:
	@sh scripts/setup.sh

$(BUILD)/CMakeCache.txt: | setup
	cmake -S . -B $(BUILD) -DCMAKE_TOOLCHAIN_FILE=$(TOOLCHAIN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

configure: setup $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j $(JOBS)

prefix: build
	@sh scripts/wine-prefix.sh $(BUILD)

test: prefix
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: prefix
	@bash scripts/demo.sh $(BUILD)

bench: prefix
	@bash scripts/bench.sh $(BUILD)

install: build
	cmake --install $(BUILD) --prefix $(or $(PREFIX),$(BUILD)/install)

clean:
	rm -rf $(BUILD)
