# The code_lines measurement: a plain program that needs no benchmark
# library. Included from bench/CMakeLists.txt.
add_executable(code_lines_bench ${CMAKE_CURRENT_LIST_DIR}/code_lines_bench.cpp)
target_link_libraries(code_lines_bench PRIVATE kestrune::mcp_responses kestrune_warnings)
