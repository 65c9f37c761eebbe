# The two commands of the README. Both install what the tree needs first.
.PHONY: test run deps build

deps:
	@scripts/install-deps

build: deps
	cmake --preset default
	cmake --build --preset default

test: build
	ctest --preset default

run: build
	@scripts/run-main
