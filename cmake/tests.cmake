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


# Mutation drivers from fuzz/: damaged tables, memo files, random key
# expressions and random date and time texts must give statuses, never a
# crash (the sanitizer build makes any stray read or write fatal). A few
# hundred rounds per run keep them quick; run them by hand with more rounds
# and other seeds.
file(GLOB XB_FUZZ_SRC CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/fuzz/*.cpp)
foreach(src ${XB_FUZZ_SRC})
  get_filename_component(name ${src} NAME_WE)
  add_executable(${name} ${src})
  target_link_libraries(${name} PRIVATE xbfiles_static)
  add_test(NAME ${name} COMMAND ${name} ${CMAKE_SOURCE_DIR}/../shared/fixtures 1 400
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
endforeach()

# The second opinion on NDX files: a small program on Debian's xbase64 that
# writes NDX indexes over our tables (tests/xbase64/ndx_writer.cpp). It is
# built 32-bit in every flavour (xbase64's 64-bit build writes broken trees)
# against the i386 library, outside the flavour's flags, and the NDX suite
# runs it, under qemu-i386 where 32-bit programs do not run natively.
set(XB_NDX_WRITER "")
set(XB_XBASE64_I386 /usr/lib/i386-linux-gnu/libxbase64.so.1)
if(EXISTS /usr/include/xbase64/xbase64.h AND EXISTS ${XB_XBASE64_I386})
  set(XB_NDX_WRITER ${CMAKE_BINARY_DIR}/ndx_writer)
  add_custom_command(OUTPUT ${XB_NDX_WRITER}
    COMMAND ${CMAKE_CXX_COMPILER} -m32 -O1 -w -o ${XB_NDX_WRITER}
            ${CMAKE_SOURCE_DIR}/tests/xbase64/ndx_writer.cpp ${XB_XBASE64_I386}
    DEPENDS ${CMAKE_SOURCE_DIR}/tests/xbase64/ndx_writer.cpp)
  add_custom_target(ndx_writer ALL DEPENDS ${XB_NDX_WRITER})
  add_dependencies(test_ndx_xbase64 ndx_writer)
endif()
target_compile_definitions(test_ndx_xbase64 PRIVATE XB_NDX_WRITER="${XB_NDX_WRITER}")
