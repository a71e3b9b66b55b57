# Set-up and everyday targets. Each one installs what the build needs first.
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: deps configure build test demo bench bench-deps test-browser serve clean

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
	bash bench/video_memory.sh $(BUILD)/velqor-camera
	bash bench/remux.sh $(BUILD)/velqor-camera

# Tools the benchmarks compare against; not needed to build or test.
bench-deps:
	apt-get install -y --no-install-recommends ffmpeg

# The page in a real browser: installs Chromium (and Node.js) when missing.
test-browser: build
	command -v chromium >/dev/null || apt-get install -y --no-install-recommends chromium
	command -v node >/dev/null || apt-get install -y --no-install-recommends nodejs
	cd $(BUILD) && ctest --output-on-failure -R browser_capture
	@echo "screenshot: $(BUILD)/browser-capture.png"

serve: build
	$(BUILD)/velqor-camera serve

clean:
	rm -rf $(BUILD)
