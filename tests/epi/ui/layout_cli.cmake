# `kv3 layout show` and `kv3 layout write` run as a user would, over a folder and over a pack
# built from it. Variables: KV3 (the program), WORK (a scratch folder).

include(${CMAKE_CURRENT_LIST_DIR}/../cli_support.cmake)

function(expect_json json expected)
    string(JSON got GET "${json}" ${ARGN})
    if(got MATCHES "^\\[")
        string(REPLACE " " "" got "${got}")
    endif()
    if(NOT got STREQUAL expected)
        message(FATAL_ERROR "${ARGN}: '${got}', expected '${expected}'\n${json}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
set(res ${WORK}/res.frs)
file(MAKE_DIRECTORY ${res}/layouts)
file(WRITE ${res}/epi.frs "")
file(WRITE ${res}/layouts/main.xml
"<?xml version=\"1.0\"?>
<epi><version>4</version><signature>layout</signature>
<content><version>1</version><kind>iWin</kind><name>main</name><text>Main</text><size>400,300</size>
<itemslist>
<item><kind>iCon</kind><name>pane</name><position>10,10</position><size>380,280</size>
<attributes><attribute><name>chil</name><value>pane.xml</value></attribute>
<attribute><name>mgTL</name><value>1</value></attribute><attribute><name>mgBR</name><value>3</value></attribute></attributes></item>
<item><kind>ubob</kind><name>labl</name><relativeposition>5,5</relativeposition><size>50,20</size><text>One\r
     line</text></item>
</itemslist></content></epi>
")
file(WRITE ${res}/layouts/pane.xml
"<epi><content><name>pane</name><size>100,50</size><itemslist>
<item><kind>ubob</kind><name>knob</name><position>1,2</position><size>3,4</size></item>
</itemslist></content></epi>
")

# By file name, relaid out to a new size: the pane's two anchors stretch it, 'chil' brings the knob.
run_kv3(0 layout show --json --size 800,600 --folder ${res} main.xml)
set(shown "${last_out}")
expect_json("${shown}" "[0,0,800,600]" frame)
expect_json("${shown}" "[10,10,790,590]" children 0 frame)
expect_json("${shown}" "[0,0,100,50]" children 0 designRect)
expect_json("${shown}" "knob" children 0 children 0 name)
expect_json("${shown}" "pane.xml" children 0 attributes chil)
expect_json("${shown}" "One line" children 1 text)
expect_json("${shown}" "[15,15,65,35]" children 1 frame)

# By the root's name, from a pack built of the same folder.
run_kv3(0 pack build ${res} ${WORK}/res.prs)
run_kv3(0 layout show --json --pack ${WORK}/res.prs main)
expect_json("${last_out}" "knob" children 0 children 0 name)

# Written back and read again: the same objects in the same places.
run_kv3(0 layout write --folder ${res} main ${res}/layouts/back.xml)
run_kv3(0 layout show --json --folder ${res} back.xml)
set(back "${last_out}")
run_kv3(0 layout show --json --folder ${res} main.xml)
foreach(path "name" "frame" "children 0 name" "children 0 frame" "children 0 children 0 frame" "children 1 text"
             "children 1 frame" "children 0 designRect")
    separate_arguments(keys UNIX_COMMAND "${path}")
    string(JSON want GET "${last_out}" ${keys})
    if(want MATCHES "^\\[")
        string(REPLACE " " "" want "${want}")
    endif()
    expect_json("${back}" "${want}" ${keys})
endforeach()

# Failures: one line, the right status, nothing left behind.
run_kv3(1 layout show --folder ${res} none)
run_kv3(1 layout show --folder ${WORK} main.xml)
run_kv3(2 layout show --size 3 --folder ${res} main.xml)
run_kv3(2 layout show --folder ${res} --pack ${WORK}/res.prs main.xml)
run_kv3(1 layout write --folder ${res} main.xml ${WORK}/missing/out.xml)
file(GLOB left "${WORK}/missing/*" "${res}/layouts/*.part")
if(left)
    message(FATAL_ERROR "left behind: ${left}")
endif()
