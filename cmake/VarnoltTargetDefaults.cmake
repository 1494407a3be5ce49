# Warnings and sanitizers for every target of ours, in one place.

if(VARNOLT_SANITIZE)
  set(varnolt_undefined undefined)
  # A float converted to an integer that cannot hold it is undefined too, but not part of
  # "undefined" in every compiler; add it where the compiler has it.
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS -fsanitize=float-cast-overflow)
  set(CMAKE_REQUIRED_LINK_OPTIONS -fsanitize=float-cast-overflow)
  check_cxx_source_compiles("int main() { return 0; }" VARNOLT_HAS_FLOAT_CAST_SANITIZER)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(VARNOLT_HAS_FLOAT_CAST_SANITIZER)
    string(APPEND varnolt_undefined ,float-cast-overflow)
  endif()
  add_compile_options(-fsanitize=address,${varnolt_undefined} -fno-omit-frame-pointer -fno-sanitize-recover=${varnolt_undefined})
  add_link_options(-fsanitize=address,${varnolt_undefined})
endif()

function(varnolt_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow)
  if(VARNOLT_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# The environment of every test: the offscreen platform, and the sanitizers' options.
function(varnolt_test_environment out)
  set(env "QT_QPA_PLATFORM=offscreen")
  if(VARNOLT_SANITIZE)
    list(APPEND env "ASAN_OPTIONS=detect_leaks=1:abort_on_error=1"
                    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tools/lsan.supp:print_suppressions=0"
                    "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")
  endif()
  set(${out} "${env}" PARENT_SCOPE)
endfunction()

# varnolt_add_test(NAME name SOURCES ... LIBS ... LABELS ... [TIMEOUT s] [WIDGETS])
# A Qt Test executable registered with ctest; widget tests get the offscreen platform.
function(varnolt_add_test)
  cmake_parse_arguments(T "WIDGETS" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE Qt6::Test ${T_LIBS})
  varnolt_target_defaults(${T_NAME})
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 60)
  endif()
  varnolt_test_environment(env)
  set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT}
                                            ENVIRONMENT "${env}")
endfunction()
