# The two shared libraries (and the static host), their installation and the CMake package.
set(ZMV_PUBLIC_HEADERS
  zmvstream.h
  base/zmv_export.h base/zmv_fourcc.h base/zmv_result.h
  platform/zmv_platform.h platform/zmv_byte.h platform/zmv_codec.h platform/zmv_host.h
  stream/zmvstream_buf.h stream/zmvstream_file.h
  facade/zmvstream_media.h facade/zmvstream_reader.h facade/zmvstream_writer.h
  mp4/zmvstream_mp4_writer.h mp4/zmvstream_mp4_reader.h
  avi/zmvstream_avi_writer.h avi/zmvstream_avi_reader.h)

# libzmvstream.so.1: the rooms, under a version script that exports the reviewed list and nothing else. The host's names
# stay undefined; they come from the process.
add_library(zmvstream SHARED)
target_sources(zmvstream PRIVATE
  $<TARGET_OBJECTS:zmv_stream> $<TARGET_OBJECTS:zmv_media> $<TARGET_OBJECTS:zmv_mp4_writer>
  $<TARGET_OBJECTS:zmv_mp4_reader> $<TARGET_OBJECTS:zmv_avi_writer> $<TARGET_OBJECTS:zmv_avi_reader>
  $<TARGET_OBJECTS:zmv_facade>)
set_target_properties(zmvstream PROPERTIES SOVERSION ${PROJECT_VERSION_MAJOR} VERSION ${PROJECT_VERSION}
  LINKER_LANGUAGE CXX LINK_DEPENDS ${PROJECT_BINARY_DIR}/zmvstream.map)
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/exports.txt zmv_exports REGEX "^[A-Za-z_]")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.txt)
list(JOIN zmv_exports ";\n    " zmv_export_lines)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/zmvstream.map
  CONTENT "{\n  global:\n    @zmv_export_lines@;\n  local: *;\n};\n" @ONLY)
target_link_options(zmvstream PRIVATE
  LINKER:--version-script=${PROJECT_BINARY_DIR}/zmvstream.map LINKER:--as-needed LINKER:-z,relro,-z,now
  -static-libgcc)
target_link_libraries(zmvstream PRIVATE zmv_room_flags m)
target_include_directories(zmvstream INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zmvstream>)

# The default host, shared and static.
foreach(kind SHARED STATIC)
  if(kind STREQUAL "SHARED")
    set(target zmvplatform)
  else()
    set(target zmvplatform_static)
  endif()
  add_library(${target} ${kind})
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:zmv_posix> $<TARGET_OBJECTS:zmv_codec>)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX OUTPUT_NAME zmvplatform
    SOVERSION ${PROJECT_VERSION_MAJOR} VERSION ${PROJECT_VERSION})
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:zmv_room_flags>)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zmvstream>)
endforeach()
target_link_options(zmvplatform PRIVATE LINKER:--as-needed LINKER:-z,relro,-z,now -static-libgcc)

foreach(header ${ZMV_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zmvstream/${folder})
endforeach()
install(TARGETS zmvstream zmvplatform zmvplatform_static EXPORT zmvstreamTargets)
install(EXPORT zmvstreamTargets NAMESPACE zmvstream:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zmvstream)
include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/zmvstreamConfig.cmake.in ${PROJECT_BINARY_DIR}/zmvstreamConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zmvstream)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zmvstreamConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zmvstreamConfig.cmake ${PROJECT_BINARY_DIR}/zmvstreamConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zmvstream)
# The prefix relative to the file itself, so that an installation can be moved.
file(RELATIVE_PATH zmv_pc_up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" zmv_pc_up "${zmv_pc_up}")
set(ZMV_PC_PREFIX "\${pcfiledir}/${zmv_pc_up}")
configure_file(cmake/zmvstream.pc.in ${PROJECT_BINARY_DIR}/zmvstream.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zmvstream.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
