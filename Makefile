# Brimble's entry points. Each target installs what is missing first.
BUILD     ?= build
JOBS      ?= $(shell nproc)
# Optimized, with line tables only (-g1): backtraces and sanitizer reports keep their file:line,
# and the build takes a third less time than with full debug info. Sources are compiled in
# batches (a unity build), which halves a clean build; a developer who edits one file all day may
# prefer their own build directory without it.
CMAKE_GEN := -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRIMBLE_UNITY_BUILD=ON \
  "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG"

.PHONY: deps configure build test sanitize-build sanitize cli demo readme-gif package package-check bench-build bench bench-memory bench-capture bench-memory-effects bench-mcp bench-accessibility bench-app bench-script bench-tape bench-peers bench-video fuzz format clean

deps:
	@scripts/install-deps.sh

# The build directory holds everything once `make build` or `make test` has run; `make demo`
# alone configures it for the command line only, and the next full build widens it.
FULL_BUILD := -DBRIMBLE_BUILD_TESTS=ON -DBRIMBLE_BUILD_APP=ON
configure: deps
	@grep -qs 'BRIMBLE_BUILD_APP:BOOL=ON' $(BUILD)/CMakeCache.txt \
	  && grep -qs 'BRIMBLE_BUILD_TESTS:BOOL=ON' $(BUILD)/CMakeCache.txt && test -f $(BUILD)/build.ninja \
	  || cmake -S . -B $(BUILD) $(CMAKE_GEN) -DBRIMBLE_WERROR=ON $(FULL_BUILD)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

# Tests that drive real X servers, window managers and browsers can lose a race with them on a
# loaded machine; a test that fails is run once more before it counts as failed.
CTEST_FLAGS := --output-on-failure -j $(JOBS) --repeat until-pass:2

test: build
	ctest --test-dir $(BUILD) $(CTEST_FLAGS)

# The unit tests again under AddressSanitizer and UndefinedBehaviorSanitizer, with line tables
# only (-g1) and in batches, as above. Lightly optimized (-O1), as the sanitizers' authors advise:
# unoptimized, the encoder's loops ran the encoding tests thirty times slower than the plain build,
# which cost CI more than anything else. Left out:
# - the example scripts and the README's GIF (each renders a whole recording, and the BrimbleRun
#   tests drive the same engine and render path), and the checks of the docs' commands and the CI
#   recipe's scripts (the same commands and runs);
# - the test of typing pace: a timing, which the sanitizers only slow;
# - the two tests that measure how much memory a long process takes (the sanitizers' own memory is
#   all they would measure; smaller process tests run the same streaming code here);
# - the desktop app, and the commands run in a GNOME session end to end: they spend their time
#   waiting on GNOME and on windows, the app's engine is the core's, tested here, and without the
#   app the sanitizers' build takes minutes less.
SANITIZE_EXCLUDE := -E '^Examples/|^DocsCommands\.|^CIRecipe\.|^BrimbleRun\.TypingKeepsThePace|^BrimbleProcess\.(AMinuteOfFullHD|AHugeLogicalScreen)|^(BrimbleOnWayland|BrimbleWindowOnWayland|BrimbleMCPWayland)\.'
sanitize-build: deps
	@test -f build-asan/build.ninja || cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug \
	  "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1" "-DCMAKE_C_FLAGS_DEBUG=-O1 -g1" -DBRIMBLE_WERROR=ON \
	  -DBRIMBLE_SANITIZE=ON -DBRIMBLE_UNITY_BUILD=ON -DBRIMBLE_BUILD_APP=OFF
	cmake --build build-asan -j $(JOBS)

sanitize: sanitize-build
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	  ctest --test-dir build-asan $(CTEST_FLAGS) $(SANITIZE_EXCLUDE)

# Only the command line: its packages, and the one target, so a newcomer's first GIF comes in
# minutes. A build folder that `make build` made keeps everything it has.
cli:
	@scripts/install-deps.sh demo
	@test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) $(CMAKE_GEN) -DBRIMBLE_WERROR=ON \
	  -DBRIMBLE_BUILD_TESTS=OFF -DBRIMBLE_BUILD_APP=OFF
	cmake --build $(BUILD) -j $(JOBS) --target brimble

# The example script in an embedded display, whatever $$DISPLAY says.
demo: cli
	$(BUILD)/cli/brimble run --headless examples/hello.brim

# Debian packages of the command line and of the app, from the build folder:
# $(BUILD)/brimble_<version>_amd64.deb and $(BUILD)/brimble-app_<version>_amd64.deb.
package: configure
	cmake --build $(BUILD) -j $(JOBS) --target brimble brimble-app
	cd $(BUILD) && cpack

# Installs those packages on this machine, runs an example from /usr/bin, removes them and checks
# that nothing is left. Changes the system: for a test machine.
package-check: package
	packaging/check-package.sh $(BUILD)

# The GIF at the top of the README: Brimble running a script in a terminal of its own display.
# That terminal's shell finds brimble on PATH, so the one just built goes first; the GIF it made
# plays in ImageMagick's animate, one of the test packages.
readme-gif: configure
	cmake --build $(BUILD) -j $(JOBS) --target brimble
	PATH="$(abspath $(BUILD))/cli:$$PATH" $(BUILD)/cli/brimble run --headless -q examples/brimble.brim \
	  -o docs/brimble.gif

bench-build: deps
	@test -f build-bench/build.ninja || cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release \
	  -DBRIMBLE_BUILD_TESTS=OFF -DBRIMBLE_BUILD_BENCHMARKS=ON
	cmake --build build-bench -j $(JOBS)

bench: bench-build
	build-bench/bench/BrimbleBench

# Peak memory of encoding a 10-minute 1920x1080 recording (target: under 200 MB).
bench-memory: bench-build
	/usr/bin/time -v build-bench/bench/BrimbleLongRecordingBench 10 30 build-bench/long.gif 2>&1 \
	  | grep -E '^(store|encode):|Maximum resident|Elapsed'

# The same recording rendered through the effects pass with every effect on (target: under 200 MB).
bench-memory-effects: bench-build
	/usr/bin/time -v build-bench/bench/BrimbleLongRecordingBench 10 30 build-bench/long-effects.gif \
	  effects 2>&1 | grep -E '^(store|render):|Maximum resident|Elapsed'

# Screen capture at 1920x1080: display start-up, per-frame costs, sustained 30 and 60 fps; then
# Wayland in a headless GNOME session (1280x800 at 30 fps), beside X11 at 1280x800.
bench-capture: bench-build
	build-bench/bench/BrimbleCaptureBench 10

# The MCP tools through pipes: tools/list, list_windows, start_recording, render_gif of 10 s.
bench-mcp: bench-build
	build-bench/bench/BrimbleMCPToolsBench 5

# Element discovery over AT-SPI on gtk3-widget-factory (targets: list 500 in 500 ms, one
# text: target in 200 ms).
bench-accessibility: bench-build
	build-bench/bench/BrimbleAccessibilityBench 20

# The desktop app: shortcut to overlay, Return to clipboard, idle CPU and memory.
bench-app: bench-build
	build-bench/bench/BrimbleAppBench 10
	build-bench/bench/BrimbleAppWaylandBench 10

# `brimble run` of examples/hello.brim: wall time against the script's timeline, GIF length.
bench-script: build
	bench/run-script.sh -n 3

# A tape of twenty seconds run as it stands (target: wall time at most its timeline + 3 s), then
# the same demo written as .brim; each with its GIF's bytes.
bench-tape: build
	bench/run-script.sh -n 3 bench/tapes/twenty.tape
	bench/run-script.sh -n 3 bench/tapes/twenty.brim

# brimble beside ffmpeg, gifsicle, ImageMagick and gifski on real screen recordings.
bench-peers: build
	bench/run-peers.sh -n 3

# MP4: brimble beside ffmpeg -c:v libx264 at the same CRF, and 1080p30 against real time.
bench-video: build
	bench/run-video.sh -n 3

# libFuzzer needs clang; FUZZ_SECONDS per target.
FUZZ_SECONDS ?= 60
fuzz: deps
	@test -f build-fuzz/build.ninja || CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -G Ninja \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRIMBLE_BUILD_TESTS=OFF -DBRIMBLE_BUILD_FUZZERS=ON
	cmake --build build-fuzz -j $(JOBS) --target fuzzers
	scripts/run-fuzzers.sh build-fuzz/fuzz $(FUZZ_SECONDS)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build build-asan build-bench build-fuzz hello.gif
