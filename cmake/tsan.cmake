# VEXO_TSAN: the cache-writer thread test alone, with ThreadSanitizer, over
# just the sources it runs (the frame, the cache writers and reader, the
# error record).
add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
add_link_options(-fsanitize=thread)
find_package(GTest REQUIRED)
file(GLOB tsan_frame CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/frame/*.cpp)
file(GLOB tsan_support CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/*.cpp)
# The test sysroots are laid out by the simulator's sysfs builder.
file(GLOB tsan_box CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/sim/box/*.cpp)
list(REMOVE_ITEM tsan_box ${PROJECT_SOURCE_DIR}/sim/box/main.cpp)
add_executable(test_threads_tsan ${PROJECT_SOURCE_DIR}/tests/frame/threads_test.cpp ${tsan_support} ${tsan_box} ${tsan_frame}
  ${PROJECT_SOURCE_DIR}/src/disk/disk_update_cache_file.cpp ${PROJECT_SOURCE_DIR}/src/disk/disk_get_cache_file.cpp
  ${PROJECT_SOURCE_DIR}/platform/core/err.cpp)
target_include_directories(test_threads_tsan PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src
  ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/sim)
target_compile_definitions(test_threads_tsan PRIVATE VEXO_BUILDING_LIBRARY=1 _GNU_SOURCE
  VEXO_TEST_SOURCE_DIR="${PROJECT_SOURCE_DIR}" VEXO_TEST_BUILD_DIR="${CMAKE_BINARY_DIR}")
target_link_libraries(test_threads_tsan PRIVATE GTest::gtest_main PkgConfig::JSONC PkgConfig::JSONCPP PkgConfig::LIBXML2
  PkgConfig::SQLITE3 PkgConfig::LIBCURL Threads::Threads ${CMAKE_DL_LIBS})
enable_testing()
add_test(NAME frame.threads_tsan COMMAND test_threads_tsan)
