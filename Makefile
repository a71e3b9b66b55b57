# Set-up and everyday targets. Each one installs what the build needs first.
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: deps configure build test demo bench clean

deps:
	bash scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -G Ninja

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	bash scripts/demo.sh $(BUILD)

bench: build
	$(BUILD)/bench/image_bench

clean:
	rm -rf $(BUILD)
