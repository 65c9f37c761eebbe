# The neutral libraries and kv3 link no windowing or drawing library: neither the shared
# libraries the programs ask for themselves (their NEEDED entries; what those pull in, such as a
# codec's optional display support, is not theirs) nor the libraries' own link lists name GTK,
# GDK, X11, XCB, cairo, pango or wayland.
# Variables: PROGRAMS (executables to inspect with readelf), LINKS (the libraries' link lists).

set(pattern "(gtk|gdk|x11|xcb|cairo|pango|wayland)")
foreach(program ${PROGRAMS})
    execute_process(COMMAND readelf -d ${program} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0 OR NOT out MATCHES "NEEDED")
        message(FATAL_ERROR "readelf -d ${program} failed: ${err}")
    endif()
    string(REGEX MATCHALL "NEEDED[^\n]*" out "${out}")
    string(TOLOWER "${out}" out)
    if(out MATCHES "${pattern}")
        message(FATAL_ERROR "${program} links an interface library:\n${out}")
    endif()
endforeach()
string(REPLACE "," ";" links "${LINKS}")
foreach(link ${links})
    string(TOLOWER "${link}" link)
    if(link MATCHES "${pattern}")
        message(FATAL_ERROR "a neutral library links '${link}'")
    endif()
endforeach()
