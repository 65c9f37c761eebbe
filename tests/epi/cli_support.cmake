# Helpers of the command-line scripts run with `cmake -P`. KV3 names the program.

# Runs kv3 with ARGN and expects exit `code`; a failure must say so in exactly one line on stderr.
# Leaves stdout and stderr in last_out and last_err.
function(run_kv3 code)
    execute_process(COMMAND ${KV3} ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL ${code})
        message(FATAL_ERROR "kv3 ${ARGN}: exit ${rc}, expected ${code}\nstdout: ${out}\nstderr: ${err}")
    endif()
    if(NOT code EQUAL 0)
        string(REGEX MATCHALL "\n" lines "${err}")
        list(LENGTH lines count)
        if(NOT count EQUAL 1)
            message(FATAL_ERROR "kv3 ${ARGN}: expected one line on stderr, got:\n${err}")
        endif()
    endif()
    set(last_out "${out}" PARENT_SCOPE)
    set(last_err "${err}" PARENT_SCOPE)
endfunction()

# The last run's stdout must be `expected` exactly.
function(expect_out expected)
    if(NOT last_out STREQUAL "${expected}")
        message(FATAL_ERROR "expected:\n${expected}\ngot:\n${last_out}")
    endif()
endfunction()
