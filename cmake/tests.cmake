# GoogleTest from the sources Debian ships, built with our flavour's flags
# so the same suites run optimised, sanitized and 32-bit.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
include(GoogleTest)

# One executable per test file, so one suite's build trouble stays its own.
file(GLOB XB_TESTS_SRC CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/*.cpp)
file(GLOB XB_TEST_SUPPORT CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/support/*.cpp)
add_library(xbtestsupport STATIC ${XB_TEST_SUPPORT})
target_link_libraries(xbtestsupport PUBLIC xbfiles_static GTest::gtest)
target_include_directories(xbtestsupport PUBLIC ${CMAKE_SOURCE_DIR}/tests/support)
target_compile_definitions(xbtestsupport PUBLIC
  XB_FIXTURES="${CMAKE_SOURCE_DIR}/../shared/fixtures"
  XB_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
foreach(src ${XB_TESTS_SRC})
  get_filename_component(name ${src} NAME_WE)
  add_executable(${name} ${src})
  target_link_libraries(${name} PRIVATE xbtestsupport GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "XB_BUILD_DIR=${CMAKE_BINARY_DIR}")
endforeach()

# The shared object may need only libc and libm, and may export only the
# library's own names. Sanitizer runtimes would add NEEDED entries, so the
# check runs in the plain builds.
if(NOT XB_FLAVOR STREQUAL "asan")
  add_test(NAME so_needs_and_exports
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/check_so.sh $<TARGET_FILE:xbfiles>)
  # The installed header, library, pkg-config file and CMake package, used
  # by a program outside the project.
  set(XB_CONSUMER_FLAGS "")
  if(XB_FLAVOR STREQUAL "m32")
    set(XB_CONSUMER_FLAGS "-m32")
  endif()
  add_test(NAME install_and_use
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/check_install.sh ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR} "${XB_CONSUMER_FLAGS}")
endif()


# Mutation drivers from fuzz/: damaged tables, memo files and random key
# expressions must give statuses, never a crash (the sanitizer build makes
# any stray read or write fatal). A few hundred rounds per run keep them
# quick; run them by hand with more rounds and other seeds.
file(GLOB XB_FUZZ_SRC CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/fuzz/*.cpp)
foreach(src ${XB_FUZZ_SRC})
  get_filename_component(name ${src} NAME_WE)
  add_executable(${name} ${src})
  target_link_libraries(${name} PRIVATE xbfiles_static)
  add_test(NAME ${name} COMMAND ${name} ${CMAKE_SOURCE_DIR}/../shared/fixtures 1 400
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
endforeach()
