# One INTERFACE target carries the language level, warnings, hardening and sanitizer flags
# of every target in the tree; third-party headers come in as system includes so that our
# -Werror (KALVO_WERROR, on in the presets and the test command) never fires on code we do not
# own. A plain configure leaves warnings as warnings: another compiler's new diagnostics must
# not stop someone building the library with their own flags.

find_package(RapidJSON QUIET)
find_path(KALVO_RAPIDJSON_INCLUDE rapidjson/rapidjson.h REQUIRED)
find_path(KALVO_FMT_INCLUDE fmt/format.h REQUIRED)

# The toolchain part alone (standard library, sanitizers), for third-party code built here.
add_library(kalvo_toolchain INTERFACE)

add_library(kalvo_settings INTERFACE)
target_link_libraries(kalvo_settings INTERFACE kalvo_toolchain)
target_include_directories(kalvo_settings INTERFACE "${PROJECT_SOURCE_DIR}" "${PROJECT_BINARY_DIR}/generated")

# The version as a generated header (package/Version.h), so that only its readers rebuild when
# project(VERSION) changes.
configure_file("${CMAKE_CURRENT_LIST_DIR}/Version.h.in" "${PROJECT_BINARY_DIR}/generated/package/Version.h" @ONLY)
target_include_directories(kalvo_settings SYSTEM INTERFACE "${KALVO_RAPIDJSON_INCLUDE}" "${KALVO_FMT_INCLUDE}")
target_compile_features(kalvo_settings INTERFACE cxx_std_20)

# {fmt} header-only: the host must not need a libfmt at run time.
target_compile_definitions(kalvo_settings INTERFACE FMT_HEADER_ONLY=1 RAPIDJSON_HAS_STDSTRING=1)

target_compile_options(kalvo_settings INTERFACE
  -Wall -Wextra -Wshadow
  # clang's -Wcomma flags calls chained with the comma operator.
  $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wcomma>
  $<$<BOOL:${KALVO_WERROR}>:-Werror>
  -fvisibility=hidden -fvisibility-inlines-hidden
  # Hardening fit for a library loaded into a security agent.
  -fstack-protector-strong
  # _FORTIFY_SOURCE=2 where optimising, unless the user's flags or the compiler set a level of
  # their own: decided in the preprocessor, so nothing clashes and nothing is lowered.
  "SHELL:-include ${CMAKE_CURRENT_LIST_DIR}/FortifySource.h"
)

if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND KALVO_LIBCXX)
  target_compile_options(kalvo_toolchain INTERFACE -stdlib=libc++)
  target_link_options(kalvo_toolchain INTERFACE -stdlib=libc++)
endif()

if(NOT APPLE)
  target_link_options(kalvo_settings INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

if(KALVO_SANITIZE)
  target_compile_options(kalvo_toolchain INTERFACE -fsanitize=${KALVO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(kalvo_toolchain INTERFACE -fsanitize=${KALVO_SANITIZE})
  target_compile_definitions(kalvo_toolchain INTERFACE KALVO_SANITIZED=1)
endif()

# Emulated code (the arm64 build under qemu) runs ten to thirty times slower than native, as
# under the sanitizers: tests scale their heavy loops down on KALVO_SANITIZED in both cases.
if(CMAKE_CROSSCOMPILING_EMULATOR AND NOT KALVO_SANITIZE)
  target_compile_definitions(kalvo_settings INTERFACE KALVO_SANITIZED=1 KALVO_EMULATED=1)
endif()

if(APPLE)
  # The shipped sensor is one universal binary.
  if(NOT CMAKE_OSX_ARCHITECTURES)
    set(CMAKE_OSX_ARCHITECTURES "x86_64;arm64" CACHE STRING "" FORCE)
  endif()
endif()
