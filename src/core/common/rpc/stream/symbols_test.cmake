# Reads what the compiler has made of the stream framework and of the generated
# service: no type information, no destructor of Service that others could
# inline, no lock, and no guard but those of the registries, whose initialisers
# may stand in several modules.
#
#   cmake -DNM=... -DSTREAM=libtorvane_stream.a
#         -DSERVICE=libtorvane_browser_window.a -P symbols_test.cmake

function(read_symbols archive result)
  execute_process(COMMAND ${NM} -C ${archive}
    OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE ";" "," listing "${listing}")
  string(REPLACE "\n" ";" lines "${listing}")
  set(${result} ${lines} PARENT_SCOPE)
endfunction()

function(expect_none lines pattern what)
  set(found ${lines})
  list(FILTER found INCLUDE REGEX "${pattern}")
  if(found)
    message(SEND_ERROR "${what}: ${found}")
  endif()
endfunction()

function(expect_some lines pattern what)
  set(found ${lines})
  list(FILTER found INCLUDE REGEX "${pattern}")
  if(NOT found)
    message(SEND_ERROR "No ${what}")
  endif()
endfunction()

foreach(archive ${STREAM} ${SERVICE})
  read_symbols(${archive} lines)
  # Shows that there is something to read.
  expect_some("${lines}" "torvane::Service::~Service\\(\\)" "use of Service")

  expect_none("${lines}" "typeinfo (name )?for (torvane|rpc)::"
    "Type information in ${archive}")
  expect_none("${lines}" " [WVu] torvane::Service::~Service"
    "An inline destructor of Service in ${archive}")
  expect_none("${lines}" "__cxa_guard|[Mm]utex|[Ss]pin_?[Ll]ock|rwlock|sem_wait|::Lock"
    "A guard or lock in ${archive}")

  list(FILTER lines INCLUDE REGEX "guard variable for ")
  list(FILTER lines EXCLUDE REGEX
    "guard variable for torvane::(Event|Callback)Stream<.*>::stream_map_$")
  if(lines)
    message(SEND_ERROR "A guard in ${archive}: ${lines}")
  endif()
endforeach()

read_symbols(${STREAM} lines)
expect_some("${lines}" " T torvane::Service::~Service\\(\\)"
  "destructor of Service in ${STREAM}")
