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
# ThreadSanitizer, in a build directory of its own (it cannot be combined with DORVIK_SANITIZE).
if(DORVIK_TSAN)
  target_compile_options(dorvik_common INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(dorvik_common INTERFACE -fsanitize=thread)
endif()
