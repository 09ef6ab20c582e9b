# Source discovery: every folder contributes its *.cc files to its library and
# its *_test.cc files as one test executable each, so adding a file needs no
# edit here.

function(bexo_glob_sources out)
  set(srcs)
  foreach(dir ${ARGN})
    file(GLOB dir_srcs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.cc)
    list(FILTER dir_srcs EXCLUDE REGEX "_test\\.cc$")
    list(APPEND srcs ${dir_srcs})
  endforeach()
  set(${out} ${srcs} PARENT_SCOPE)
endfunction()

# One test executable per *_test.cc; ctest runs each test case in its own
# process so that process-wide state (the product root, static locks) starts fresh.
# Files named *_pg_test.cc talk to PostgreSQL: they share one throw-away
# server per ctest run (fixture "postgres", tests/CMakeLists.txt).
function(bexo_add_test_file file)
  get_filename_component(name ${file} NAME_WE)
  add_executable(${name} ${file})
  target_link_libraries(${name} PRIVATE bexo_test_support)
  set(extra)
  if(name MATCHES "_pg_test$")
    set(extra FIXTURES_REQUIRED postgres ENVIRONMENT BEXO_TEST_PG_STATE=${BEXO_TEST_PG_STATE})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 120 ${extra})
endfunction()

function(bexo_add_unit_tests)
  foreach(dir ${ARGN})
    file(GLOB tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*_test.cc)
    foreach(t ${tests})
      bexo_add_test_file(${t})
    endforeach()
  endforeach()
endfunction()
