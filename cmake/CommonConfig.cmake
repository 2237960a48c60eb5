# One place for the language standard, warnings and Qt strictness. Every target links
# dorvik_common instead of repeating these settings.
add_library(dorvik_common INTERFACE)
target_compile_features(dorvik_common INTERFACE cxx_std_17)
target_compile_options(dorvik_common INTERFACE -Wall -Wextra -Wpedantic)
if(DORVIK_WERROR)
  target_compile_options(dorvik_common INTERFACE -Werror)
endif()
target_compile_definitions(dorvik_common INTERFACE
  QT_NO_CAST_FROM_ASCII
  QT_NO_CAST_TO_ASCII
  QT_NO_CAST_FROM_BYTEARRAY
  QT_NO_URL_CAST_FROM_STRING
  QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
  QT_NO_FOREACH
  QT_NO_KEYWORDS
  QT_USE_QSTRINGBUILDER
  QT_STRICT_ITERATORS
  # keep file, function and line in every log line, also in release builds
  QT_MESSAGELOGCONTEXT
)
if(DORVIK_SANITIZE)
  target_compile_options(dorvik_common INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(dorvik_common INTERFACE -fsanitize=address,undefined)
endif()

# Fuzzing (clang only): every library compiled with coverage for libFuzzer and the address and
# undefined-behaviour sanitizers; the fuzz targets link libFuzzer's main (fuzz/CMakeLists.txt).
option(DORVIK_FUZZ "Build the libFuzzer targets under fuzz/ (clang)" OFF)
if(DORVIK_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "DORVIK_FUZZ needs clang (-DCMAKE_CXX_COMPILER=clang++)")
  endif()
  target_compile_options(dorvik_common INTERFACE -fsanitize=fuzzer-no-link,address,undefined
    -fno-omit-frame-pointer -fno-sanitize-recover=undefined -gline-tables-only)
  target_link_options(dorvik_common INTERFACE -fsanitize=fuzzer-no-link,address,undefined)
endif()

# ThreadSanitizer (scripts/tsan.sh): the heartbeat chain, the work queues, the event bus and
# the UDP transport run on several threads. Not combinable with the address sanitizer.
option(DORVIK_TSAN "Build with ThreadSanitizer" OFF)
if(DORVIK_TSAN)
  if(DORVIK_SANITIZE OR DORVIK_FUZZ)
    message(FATAL_ERROR "DORVIK_TSAN cannot be combined with DORVIK_SANITIZE or DORVIK_FUZZ")
  endif()
  target_compile_options(dorvik_common INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(dorvik_common INTERFACE -fsanitize=thread)
endif()
