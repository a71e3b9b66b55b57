# Set-up and everyday targets. Each one installs what the build needs first.
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: deps configure build test demo bench bench-deps test-browser serve test-asan test-tsan fuzz-smoke soak mutants clean docs embed-check package

deps:
	bash scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -G Ninja

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	bash scripts/install-node-deps.sh
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	bash scripts/demo.sh $(BUILD)

bench: build
	bash bench/peers.sh $(BUILD)/velqor-camera
	$(BUILD)/bench/image_bench
	bash bench/video_memory.sh $(BUILD)/velqor-camera
	bash bench/remux.sh $(BUILD)/velqor-camera

# Tools the benchmarks compare against; not needed to build or test.
bench-deps:
	apt-get install -y --no-install-recommends ffmpeg libvips-tools imagemagick python3-pil

# The page in a real browser: installs Chromium (and Node.js) when missing.
test-browser: build
	command -v chromium >/dev/null || apt-get install -y --no-install-recommends chromium
	command -v node >/dev/null || apt-get install -y --no-install-recommends nodejs
	cd $(BUILD) && ctest --output-on-failure -R browser_capture
	@echo "screenshots: $(BUILD)/browser-capture.png (page after a camera capture), $(BUILD)/browser-open.png, $(BUILD)/demo-report.png"

# The whole suite under AddressSanitizer + UndefinedBehaviorSanitizer, and
# under ThreadSanitizer, each in a build folder of its own.
test-asan: deps
	cmake -S . -B build-asan -G Ninja -DVELQOR_SANITIZE=address
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 LSAN_OPTIONS=suppressions=$(CURDIR)/scripts/lsan.supp UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS) --timeout 900

test-tsan: deps
	cmake -S . -B build-tsan -G Ninja -DVELQOR_SANITIZE=thread
	cmake --build build-tsan -j $(JOBS)
	cd build-tsan && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/scripts/tsan.supp \
	  ctest --output-on-failure -j $(JOBS) --timeout 900

# Every libFuzzer target for FUZZ_SECONDS each (clang build in build-fuzz);
# crashes land in build-fuzz/fuzz-findings/.
FUZZ_SECONDS ?= 30
fuzz-smoke: deps
	command -v clang++ >/dev/null || apt-get install -y --no-install-recommends clang libclang-rt-14-dev
	bash scripts/fuzz.sh $(FUZZ_SECONDS)

# 10,000 capture cycles in one process, 1,000 data-URL captures through the web
# host, then the library's crash safety at 1,000 kill points.
soak: build
	$(BUILD)/tests/soak 10000
	$(BUILD)/tests/web_soak 1000
	VELQOR_CRASH_POINTS=1000 $(BUILD)/tests/velqor_tests --gtest_filter='*KillNine*'

# Every deliberate fault of scripts/mutants.txt must make the suite fail; takes a while.
mutants: build
	bash scripts/mutants.sh $(BUILD)

# API documentation from the public headers (installs Doxygen when missing).
docs:
	command -v doxygen >/dev/null || apt-get install -y --no-install-recommends doxygen
	doxygen docs/Doxyfile
	@echo "API documentation: build/docs/html/index.html"

# Installs into a fresh prefix and builds and runs examples/embed against it.
embed-check: build
	bash scripts/embed-check.sh $(BUILD)

# The Debian package: $(BUILD)/velqor-camera_*.deb.
package: build
	cd $(BUILD) && cpack -G DEB

serve: build
	$(BUILD)/velqor-camera serve

clean:
	rm -rf $(BUILD)
