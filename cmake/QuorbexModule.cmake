# quorbex_module(NAME DIR [MORE_DIRS dir...] [DEPS mod...] [LIBS lib...])
# Builds every .cpp directly in DIR (and MORE_DIRS) into the static library quorbex_NAME, linked against
# the named modules and, privately, the external LIBS. A folder with no sources yet becomes an interface library, so the dependency graph stays
# the same while subsystems are filled in.
set(QUORBEX_MODULES "" CACHE INTERNAL "")
function(quorbex_module name dir)
  cmake_parse_arguments(M "" "" "MORE_DIRS;DEPS;LIBS" ${ARGN})
  set(sources "")
  foreach(d IN ITEMS ${dir} ${M_MORE_DIRS})
    file(GLOB s CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${d}/*.cpp)
    list(APPEND sources ${s})
  endforeach()
  set(target quorbex_${name})
  set(deps "")
  foreach(d IN LISTS M_DEPS)
    list(APPEND deps quorbex_${d})
  endforeach()
  # include/ is the public interface; src/ is private to the library's own targets (tests and
  # benchmarks reach it through quorbex_internal).
  if(sources)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                         PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} PUBLIC ${deps} Threads::Threads PRIVATE ${M_LIBS})
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
    target_link_libraries(${target} INTERFACE ${deps} Threads::Threads)
  endif()
  set(QUORBEX_MODULES ${QUORBEX_MODULES} ${target} CACHE INTERNAL "")
endfunction()

# quorbex_test(MODULE [lib...] [ENVIRONMENT var=value...]) builds tests/MODULE/**/*_test.cpp into
# test_MODULE, linked against quorbex_MODULE, the libraries given and the shared test support library;
# its tests run with the environment given.
function(quorbex_test name)
  cmake_parse_arguments(T "" "" "ENVIRONMENT" ${ARGN})
  set(extra ${T_UNPARSED_ARGUMENTS})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE quorbex_${name} ${extra} quorbex_internal quorbex_test_support GTest::gtest GTest::gtest_main)
  target_compile_definitions(test_${name} PRIVATE QUORBEX_SHARED_DATA="${PROJECT_SOURCE_DIR}/../shared/data")
  if(T_ENVIRONMENT)
    gtest_discover_tests(test_${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600 ENVIRONMENT "${T_ENVIRONMENT}")
  else()
    gtest_discover_tests(test_${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600)
  endif()
endfunction()

# quorbex_backend(NAME DEFINITION LIBS...) adds the database backend in src/platform/db/NAME to the db
# module: its sources, the compile definition that puts it into the backend list, and its libraries.
set(QUORBEX_BACKEND_DIRS "")
set(QUORBEX_BACKEND_LIBS "")
set(QUORBEX_BACKEND_DEFINITIONS "")
macro(quorbex_backend name definition)
  list(APPEND QUORBEX_BACKEND_DIRS src/platform/db/${name})
  list(APPEND QUORBEX_BACKEND_DEFINITIONS ${definition})
  list(APPEND QUORBEX_BACKEND_LIBS ${ARGN})
  message(STATUS "Database backend: ${name}")
endmacro()
