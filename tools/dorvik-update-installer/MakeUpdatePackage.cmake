# Packs an installed prefix as a dorvik update package (gzip-compressed tar of bin/,
# libexec/dorvik/ and share/dorvik/, paths relative to the prefix).
#   cmake -DPREFIX=<installed prefix> -DOUTPUT=<file.tar.gz> [-DVERSION=<version>] -P MakeUpdatePackage.cmake
# VERSION, when given, is written into <PREFIX>/share/dorvik/version first.
if(NOT PREFIX OR NOT OUTPUT)
  message(FATAL_ERROR "usage: cmake -DPREFIX=<prefix> -DOUTPUT=<file.tar.gz> [-DVERSION=<v>] -P MakeUpdatePackage.cmake")
endif()
get_filename_component(OUTPUT "${OUTPUT}" ABSOLUTE)
foreach(required bin/dorvik-cli libexec/dorvik/dorvik-update-installer share/dorvik/system.cfg share/dorvik/area.cfg)
  if(NOT EXISTS "${PREFIX}/${required}")
    message(FATAL_ERROR "${PREFIX} is not a dorvik installation: ${required} is missing")
  endif()
endforeach()
if(VERSION)
  file(WRITE "${PREFIX}/share/dorvik/version" "${VERSION}\n")
endif()
set(members bin libexec/dorvik share/dorvik)
execute_process(COMMAND ${CMAKE_COMMAND} -E tar czf "${OUTPUT}" --format=pax -- ${members}
                WORKING_DIRECTORY "${PREFIX}" RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "packing failed")
endif()
message(STATUS "update package: ${OUTPUT}")
