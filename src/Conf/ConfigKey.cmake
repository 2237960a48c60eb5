# The configuration file's key text and initialisation vector are deployment constants
# (cache variables DORVIK_CONFIG_KEY and DORVIK_CONFIG_IV). This checks them once at configure
# time and gives their hex forms: the library compiles the hex in (no quoting problems), and
# the resource build hands the same bytes to the encryption tool.
include_guard(GLOBAL)

function(dorvik_config_key_hex out_key_hex out_key16_hex out_iv_hex)
  string(LENGTH "${DORVIK_CONFIG_KEY}" key_len)
  if(NOT key_len EQUAL 32 OR NOT "${DORVIK_CONFIG_KEY}" MATCHES "^[!-~]+$")
    message(FATAL_ERROR "DORVIK_CONFIG_KEY must be exactly 32 printable ASCII characters without blanks (it has ${key_len})")
  endif()
  string(LENGTH "${DORVIK_CONFIG_IV}" iv_len)
  if(NOT iv_len EQUAL 16 OR NOT "${DORVIK_CONFIG_IV}" MATCHES "^[!-~]+$")
    message(FATAL_ERROR "DORVIK_CONFIG_IV must be exactly 16 printable ASCII characters without blanks (it has ${iv_len})")
  endif()
  string(HEX "${DORVIK_CONFIG_KEY}" key_hex)
  # Only the first 16 characters of the key text take part in the cipher.
  string(SUBSTRING "${DORVIK_CONFIG_KEY}" 0 16 key16)
  string(HEX "${key16}" key16_hex)
  string(HEX "${DORVIK_CONFIG_IV}" iv_hex)
  set(${out_key_hex} ${key_hex} PARENT_SCOPE)
  set(${out_key16_hex} ${key16_hex} PARENT_SCOPE)
  set(${out_iv_hex} ${iv_hex} PARENT_SCOPE)
endfunction()
