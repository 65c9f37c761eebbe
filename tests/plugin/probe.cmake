# Runs `kv3 plugin probe` on our amp and on each test library, as a user would, and checks the
# exit status and the message of each failure. Called with -DKV3=... -DTESTLIBS=... -DREFAMP=...
# -DWORK=... (an empty folder for the settings).
set(ENV{KV3_CONFIG_DIR} "${WORK}")
unset(ENV{KV3_VPA2_PATH})

function(probe library expected_exit expected_stderr expected_stdout)
    execute_process(COMMAND ${KV3} plugin probe ${library}
        RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT code EQUAL expected_exit)
        message(FATAL_ERROR "probe ${library}: exit ${code}, expected ${expected_exit}\n${out}\n${err}")
    endif()
    if(expected_stderr AND NOT err MATCHES "${expected_stderr}")
        message(FATAL_ERROR "probe ${library}: stderr lacks '${expected_stderr}':\n${err}")
    endif()
    if(expected_stdout AND NOT out MATCHES "${expected_stdout}")
        message(FATAL_ERROR "probe ${library}: stdout lacks '${expected_stdout}':\n${out}")
    endif()
    # One line on stderr for a failure, none for success.
    string(REGEX MATCHALL "\n" lines "${err}")
    list(LENGTH lines count)
    if((expected_exit EQUAL 0 AND NOT count EQUAL 0) OR (NOT expected_exit EQUAL 0 AND NOT count EQUAL 1))
        message(FATAL_ERROR "probe ${library}: ${count} lines on stderr:\n${err}")
    endif()
endfunction()

# Our amp passes every step.
probe(${REFAMP} 0 "" "handshake: ok.*instance:  ok.*silence:   ok.*tone:      ok.*state:     ok.*released:  ok")
# Found without a path: the build tree's amp.
probe("" 0 "" "kv3refamp.so.*tone:      ok")
probe(${TESTLIBS}/kv3test_gain.so 0 "" "tone:      ok")
probe(${TESTLIBS}/kv3test_v12.so 1 "kv3: VPA compatibility error: VPA Host rejected VPA PlugIn\n" "handshake: failed")
probe(${TESTLIBS}/kv3test_reject.so 1 "kv3: VPA compatibility error: VPA PlugIn rejected VPA Host\n" "")
probe(${TESTLIBS}/kv3test_norelease.so 1 "kv3: DLL error: Can't find VPA2Release function\n" "")
probe(${TESTLIBS}/kv3test_noacquire.so 1 "kv3: DLL error: Can't find VPA2Acquire function\n" "")
probe(${TESTLIBS}/kv3test_nullinstance.so 1 "createInstance gave no instance" "instance:  failed")
probe(${WORK}/missing.so 1 "kv3: DLL error: Can't load ${WORK}/missing.so\n" "")
probe("--block=0" 2 "block" "")

# Found without a path: the library the stored settings name comes before the build tree's amp.
file(WRITE ${WORK}/settings.conf "VPA2Path = sz:${TESTLIBS}/kv3test_gain.so\n")
probe("" 0 "" "kv3test_gain.so.*tone:      ok")
file(REMOVE ${WORK}/settings.conf)
