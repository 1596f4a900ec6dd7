# Thin front door over CMake. Every target first installs what is missing.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
ifeq ($(KLIPORA_WERROR),1)
CMAKE_FLAGS += -DKLIPORA_WERROR=ON
endif

.PHONY: all setup configure build run test bench gallery clean

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

# Renders every markup gallery snapshot into $(BUILD_DIR)/gallery, to look at.
gallery: build
	@$(BUILD_DIR)/tools/markup_gallery tests/data/markup/gallery $(BUILD_DIR)/gallery

clean:
	@rm -rf $(BUILD_DIR)
