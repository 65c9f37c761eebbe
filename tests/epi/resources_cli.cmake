# `kv3 resources find` and `kv3 menu show` as a user runs them, over a folder and over a pack.
# Variables: KV3 (the program), TREE (a resource folder), PACK (the same tree packed).

include(${CMAKE_CURRENT_LIST_DIR}/cli_support.cmake)

foreach(medium "--folder;${TREE}" "--pack;${PACK}")
    run_kv3(0 resources find ${medium} laya NoSz)
    expect_out("layouts/nosize.xml\n")
    # The blank belongs to the code.
    run_kv3(0 resources find ${medium} menu "Bar ")
    expect_out("menus/bar.xml\n")
    run_kv3(1 resources find ${medium} menu Bar)
    run_kv3(1 resources find ${medium} laya "Bar ")

    # By file name and by code, the same bar.
    run_kv3(0 menu show ${medium} bar.xml)
    expect_out("File\n  10000 'Open' Open\\tCtrl+O\n")
    run_kv3(0 menu show --json ${medium} "Bar ")
    expect_out("{\"name\":\"bar.xml\",\"menus\":[{\"text\":\"File\",\"items\":[{\"text\":\"Open\",\"shown\":\"Open\\tCtrl+O\",\"code\":\"Open\",\"id\":10000,\"separator\":false}]}]}\n")
    run_kv3(1 menu show ${medium} none.xml)
endforeach()

# A folder without epi.frs, a file that isn't a pack, bad usage.
run_kv3(1 resources find --folder ${TREE}/layouts laya NoSz)
run_kv3(1 menu show --pack ${TREE}/layouts/main.xml bar.xml)
run_kv3(1 menu show --pack ${TREE}/missing.prs bar.xml)
run_kv3(2 resources find laya NoSz)
run_kv3(2 resources find --folder ${TREE} --pack ${PACK} laya NoSz)
run_kv3(2 resources find --folder ${TREE} layout NoSz)
run_kv3(2 resources find --folder ${TREE} laya)
run_kv3(2 menu show --folder ${TREE})
run_kv3(2 menu list --folder ${TREE} bar.xml)
