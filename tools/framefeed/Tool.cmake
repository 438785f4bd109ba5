# The framefeed command-line tool (CLI11 and libpng, both from Debian), the install rules and the package
# configuration that find_package(FrameFeed) reads.
include(GNUInstallDirs)

set(FRAMEFEED_TOOL_DIR ${CMAKE_CURRENT_LIST_DIR})

# CLI11 is header-only; the mingw cross build finds neither it nor libpng and leaves the tool out.
find_path(FRAMEFEED_CLI11_INCLUDE_DIR CLI/CLI.hpp)
find_package(PNG QUIET)
if(FRAMEFEED_CLI11_INCLUDE_DIR AND PNG_FOUND)
  add_executable(framefeed_tool
    ${FRAMEFEED_TOOL_DIR}/Main.cpp
    ${FRAMEFEED_TOOL_DIR}/Preview.cpp
    ${FRAMEFEED_TOOL_DIR}/Bench.cpp
    ${FRAMEFEED_TOOL_DIR}/Compare.cpp
    ${FRAMEFEED_TOOL_DIR}/Host.cpp
    ${FRAMEFEED_TOOL_DIR}/Frames.cpp
    ${FRAMEFEED_TOOL_DIR}/Image.cpp
    ${FRAMEFEED_TOOL_DIR}/Progress.cpp)
  set_target_properties(framefeed_tool PROPERTIES OUTPUT_NAME framefeed)
  target_include_directories(framefeed_tool PRIVATE ${FRAMEFEED_CLI11_INCLUDE_DIR})
  target_link_libraries(framefeed_tool PRIVATE framefeed_core PNG::PNG)
  target_compile_options(framefeed_tool PRIVATE -Wall -Wextra)
  if(WIN32)
    target_compile_definitions(framefeed_tool PRIVATE NOMINMAX)
  endif()
  # demo finds the sample beside an installed tool, else in the source tree it was built from.
  target_compile_definitions(framefeed_tool PRIVATE FRAMEFEED_SAMPLE_IMAGE="${FRAMEFEED_TOOL_DIR}/sample.png")
  install(TARGETS framefeed_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${FRAMEFEED_TOOL_DIR}/sample.png DESTINATION ${CMAKE_INSTALL_DATADIR}/framefeed)
else()
  message(STATUS "framefeed tool skipped: needs CLI11 (libcli11-dev) and libpng (libpng-dev)")
endif()

# The installed package: the header, the plug-in and FrameFeed::framefeed for hosts.
target_include_directories(framefeed INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(FILES ${PROJECT_SOURCE_DIR}/include/framefeed/framefeed.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/framefeed)
install(TARGETS framefeed EXPORT FrameFeedTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
set(FRAMEFEED_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/FrameFeed)
install(EXPORT FrameFeedTargets NAMESPACE FrameFeed:: DESTINATION ${FRAMEFEED_CMAKE_DIR})
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/FrameFeedConfig.cmake
  "include(\${CMAKE_CURRENT_LIST_DIR}/FrameFeedTargets.cmake)\n")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/FrameFeedConfig.cmake DESTINATION ${FRAMEFEED_CMAKE_DIR})
