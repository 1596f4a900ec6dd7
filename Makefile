# Thin front door over CMake. Every target first installs what is missing.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
ifeq ($(KLIPORA_WERROR),1)
CMAKE_FLAGS += -DKLIPORA_WERROR=ON
endif

.PHONY: all setup configure build run test bench deb deb-test gallery crash fuzz clean

all: build

setup:
	@bash scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	@$(BUILD_DIR)/klipora run

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

bench: build
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target benchmarks

# The Debian package: build/klipora_<version>_amd64.deb, for /usr.
deb: configure
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target klipora klipora-app klipora_dist
	@cd $(BUILD_DIR) && cpack -G DEB

# Installs the package into a fresh root and runs it there, checks its
# Depends against this machine's archive, its unit and lintian (slow, so not
# part of `make test`).
deb-test: deb
	@bash scripts/test_deb.sh $(BUILD_DIR)

# Renders every markup gallery snapshot into $(BUILD_DIR)/gallery, to look at.
gallery: build
	@$(BUILD_DIR)/tools/markup_gallery tests/data/markup/gallery $(BUILD_DIR)/gallery

# Kill trials of `klipora import` and of the daemon on a sanitizer build
# (tests/crash/crash_trials.cc): TRIALS of the import, DAEMON_TRIALS of the
# daemon while it imports and processes. Leak reports are off: libvips, GLib
# and Tesseract keep their caches until exit.
CRASH_DIR ?= build-crash
TRIALS ?= 200
DAEMON_TRIALS ?= 40
crash: setup
	@cmake -S . -B $(CRASH_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKLIPORA_SANITIZE=ON \
	  -DKLIPORA_BUILD_BENCHMARKS=OFF $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(CRASH_DIR) -j $(JOBS) --target klipora klipora_crash_trials
	@ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1 \
	  $(CRASH_DIR)/tests/crash/klipora_crash_trials --klipora $(CRASH_DIR)/klipora --trials $(TRIALS) \
	  --daemon-trials $(DAEMON_TRIALS)

# libFuzzer on every *_fuzzer target, with AddressSanitizer and
# UndefinedBehaviorSanitizer, built by clang in build-fuzz/; FUZZ_SECONDS per
# target (the corpus each grows is kept there for the next run).
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
fuzz: setup
	@cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKLIPORA_FUZZ=ON \
	  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DKLIPORA_BUILD_BENCHMARKS=OFF >/dev/null
	@cmake --build $(FUZZ_DIR) -j $(JOBS) --target klipora_fuzzers
	@ASAN_OPTIONS=detect_leaks=0 bash scripts/fuzz.sh $(FUZZ_DIR) $(FUZZ_SECONDS)

clean:
	@rm -rf $(BUILD_DIR) $(CRASH_DIR) $(FUZZ_DIR)
