# The commands a user needs. Each installs what is missing first.
JOBS ?= $(shell nproc)

.PHONY: help setup build run test tsan bench fuzz soak check format install deb clean
help:
	@echo "make run    build, play a simulated camera, show what was received"
	@echo "make test   build under the address and undefined sanitizers, run all tests"
	@echo "make build  build only: build/bin/mretriever, build/bin/camsim, build/lib"
	@echo "make install | deb    under PREFIX (/usr/local) and DESTDIR; a Debian package in build/"
	@echo "make tsan | bench | fuzz | soak | check | format | clean"

setup:
	@scripts/setup

build: setup
	@cmake --preset release >build-configure.log 2>&1 || { cat build-configure.log; exit 1; }; rm -f build-configure.log
	@cmake --build --preset release -j $(JOBS)

run: build
	@scripts/run-demo

test: setup
	@cmake --preset asan
	@cmake --build --preset asan -j $(JOBS)
	@ctest --preset asan -j $(JOBS)

tsan: setup
	@cmake --preset tsan
	@cmake --build --preset tsan -j $(JOBS)
	@ctest --preset tsan -j $(JOBS)

bench: build
	@scripts/bench

fuzz: setup
	@scripts/fuzz

# How long each protocol is played.
SOAK_SECONDS ?= 60
soak: build
	@scripts/soak $(SOAK_SECONDS)

check: setup
	@scripts/check

format: setup
	@scripts/format

PREFIX ?= /usr/local
install: build
	@cmake -DCMAKE_INSTALL_PREFIX=$(PREFIX) build >/dev/null
	@cmake --build build -j $(JOBS) >/dev/null
	@DESTDIR=$(DESTDIR) cmake --install build

# The paths inside the service's unit are those of the installation.
deb: build
	@scripts/make-deb

clean:
	@rm -rf build
