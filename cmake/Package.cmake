# The library for other programs: libcorvane.so, which exports the public calls only, libcorvane.a with everything below
# them, and what a build needs to find them.
include(CMakePackageConfigHelpers)

set(corvane_soversion 3)
set(corvane_map ${CMAKE_SOURCE_DIR}/cmake/corvane.map)

# CMake wants a source; what the library holds comes whole from the archives.
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/corvane_version.c CONTENT
  "/* Version of the library, for what(1) and strings(1). */\nconst char crv_library_version[] = \"@(#)libcorvane @PROJECT_VERSION@\";\n" @ONLY)
add_library(corvane SHARED ${CMAKE_BINARY_DIR}/corvane_version.c)
set_target_properties(corvane PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${corvane_soversion} LINKER_LANGUAGE CXX
  LINK_DEPENDS ${corvane_map} C_VISIBILITY_PRESET hidden)
target_link_libraries(corvane PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,crv_api>")
# Never unloaded: libcrypto calls our random generator's functions when a thread that used it ends.
target_link_options(corvane PRIVATE -Wl,--version-script=${corvane_map} -Wl,--as-needed -Wl,-z,nodelete)
if(NOT CRV_SANITIZE AND NOT CRV_FUZZ)
  target_link_options(corvane PRIVATE -Wl,-z,defs)
endif()
target_include_directories(corvane INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# Every crv_ library below crv_api, each once.
set(parts crv_api)
set(at 0)
list(LENGTH parts count)
while(at LESS count)
  list(GET parts ${at} part)
  get_target_property(links ${part} LINK_LIBRARIES)
  foreach(link ${links})
    if(link MATCHES "^crv_" AND NOT link STREQUAL "crv_options" AND NOT link IN_LIST parts)
      list(APPEND parts ${link})
    endif()
  endforeach()
  list(LENGTH parts count)
  math(EXPR at "${at} + 1")
endwhile()

# One object with everything in it, of which other programs see the public calls alone: neither our names nor those of the
# libraries whose templates are compiled in meet theirs. Groups of sections that a program might share with its own are
# dissolved, so that the linker cannot take ours away.
set(archive ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/libcorvane.a)
set(whole ${CMAKE_BINARY_DIR}/corvane_whole.o)
set(archives "")
foreach(part ${parts})
  list(APPEND archives $<TARGET_FILE:${part}>)
endforeach()
if(CRV_SANITIZE OR CRV_FUZZ)
  set(localize ${CMAKE_COMMAND} -E true)
else()
  set(localize ${CMAKE_OBJCOPY} --wildcard --keep-global-symbol=crv[A-Z]* ${whole})
endif()
add_custom_command(OUTPUT ${archive}
  COMMAND ${CMAKE_LINKER} -r --force-group-allocation -o ${whole} --whole-archive ${archives}
  COMMAND ${localize}
  COMMAND ${CMAKE_COMMAND} -E rm -f ${archive}
  COMMAND ${CMAKE_AR} qcs ${archive} ${whole}
  DEPENDS ${parts} ${archives} VERBATIM)
add_custom_target(corvane_static ALL DEPENDS ${archive})

# Whoever moves the installed tree as a whole moves what it says of itself.
file(RELATIVE_PATH corvane_prefix /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
cmake_path(IS_ABSOLUTE CMAKE_INSTALL_LIBDIR absolute)
if(absolute)
  set(corvane_prefix ${CMAKE_INSTALL_PREFIX})
else()
  string(REGEX REPLACE "/$" "" corvane_prefix "\${pcfiledir}/${corvane_prefix}")
endif()
configure_file(${CMAKE_SOURCE_DIR}/cmake/corvane.pc.in ${CMAKE_BINARY_DIR}/corvane.pc @ONLY)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Corvane)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/CorvaneConfig.cmake.in ${CMAKE_BINARY_DIR}/CorvaneConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/CorvaneConfigVersion.cmake COMPATIBILITY SameMajorVersion)

install(TARGETS corvane EXPORT CorvaneTargets LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES ${archive} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/corvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${CMAKE_BINARY_DIR}/corvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(EXPORT CorvaneTargets NAMESPACE Corvane:: DESTINATION ${package_dir} COMPONENT development)
install(FILES ${CMAKE_BINARY_DIR}/CorvaneConfig.cmake ${CMAKE_BINARY_DIR}/CorvaneConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# A page for each chapter of the headers, and a name for each call that leads to it.
file(GLOB call_pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/man/man3/*.3)
install(FILES ${call_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
set(stubs ${CMAKE_BINARY_DIR}/man3)
foreach(page ${call_pages})
  get_filename_component(page_name ${page} NAME)
  file(STRINGS ${page} calls REGEX "calls: crv" LIMIT_COUNT 1)
  string(REGEX MATCHALL "crv[A-Z][A-Za-z0-9]*" calls "${calls}")
  foreach(call ${calls})
    file(CONFIGURE OUTPUT ${stubs}/${call}.3 CONTENT ".so man3/@page_name@\n" @ONLY)
    install(FILES ${stubs}/${call}.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
  endforeach()
endforeach()
