# What the project of docs/own-program.md has besides in the tests. It has made the
# library shop.
add_executable(consumer ${FILES}/consumer.cc)
target_link_libraries(consumer PRIVATE shop)
if(TORVANE_PARTITION_ALLOC_DIR)
  target_compile_definitions(consumer PRIVATE WITH_PARTITION_ALLOC)
endif()

add_executable(caller ${FILES}/caller.cc)
target_link_libraries(caller PRIVATE torvane::browser_window_messages torvane::transport)
