# The CMake settings the main command (scripts/main.sh) and the test command (scripts/test.sh)
# configure their builds with: the test command's gcc build then reuses what the main command
# built. Sourced; sets the array build_flags.

# Unity builds: each target compiles as one translation unit (files that clash in one unit are
# marked SKIP_UNITY_BUILD_INCLUSION where they are listed), which parses the heavy headers
# (GoogleTest, {fmt}, RapidJSON, <regex>) once per target instead of once per file. Tests
# compile while the libraries they link are still being built.
build_flags=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 -DCMAKE_OPTIMIZE_DEPENDENCIES=ON)
# Line tables only (-g1) instead of full debug information: a failure's stack trace, a sanitizer's
# report and a core file still name files and lines, and the builds take about a quarter less time.
for lang in C CXX; do
  build_flags+=("-DCMAKE_${lang}_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" "-DCMAKE_${lang}_FLAGS_DEBUG=-g1")
done
