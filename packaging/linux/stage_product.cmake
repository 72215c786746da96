# A product's Debian package: collects its files and sets what cpack must know.

include("${CMAKE_CURRENT_LIST_DIR}/documents.cmake")
set(usr "${stage}/usr")
set(fw_contents "lib/${FW_PRODUCT_PACKAGE}/Contents")
set(bundle "${usr}/lib/${FW_PRODUCT_PACKAGE}")

file(MAKE_DIRECTORY "${bundle}/Contents/MacOS")
file(COPY "${FW_PROGRAM}" DESTINATION "${bundle}/Contents/MacOS")
if(NOT FW_DFU_UTIL)
  set(FW_DFU_UTIL "${CMAKE_CURRENT_LIST_DIR}/../dfu-util-launcher")
endif()
fw_stage_dfu_util("${FW_DFU_UTIL}" "${bundle}/Contents")
fw_stage_product("${bundle}/Contents")

# The program finds its own directory through /proc/self/exe, so a link in PATH is enough. A desktop finds
# the entry, and so the icon, of its window by the link's name.
file(MAKE_DIRECTORY "${usr}/bin")
file(CREATE_LINK "../${fw_contents}/MacOS/firmware_updater" "${usr}/bin/${FW_PRODUCT_PACKAGE}" SYMBOLIC)
configure_file("${CMAKE_CURRENT_LIST_DIR}/product.desktop.in"
  "${usr}/share/applications/${FW_PRODUCT_PACKAGE}.desktop" @ONLY)
configure_file("${CMAKE_CURRENT_LIST_DIR}/product.metainfo.xml.in"
  "${usr}/share/metainfo/${FW_PRODUCT_ID}.metainfo.xml" @ONLY)
fw_run("${CMAKE_CURRENT_LIST_DIR}/../extract_icons.py" "${product_icon}"
  --hicolor "${usr}/share/icons/hicolor" ${FW_PRODUCT_PACKAGE})

# 72 comes before 73-seat-late.rules, which grants access to tagged devices.
set(udev_rules "${usr}/lib/udev/rules.d/72-${FW_PRODUCT_PACKAGE}.rules")
file(MAKE_DIRECTORY "${usr}/lib/udev/rules.d")
execute_process(COMMAND "${FW_BUNDLE_CHECK}" --udev-rules "${FW_PRODUCT_RESOURCES}/config.ini"
  OUTPUT_FILE "${udev_rules}" COMMAND_ERROR_IS_FATAL ANY)

# A product may add any number of paragraphs to the copyright file, or none.
set(resources "usr/${fw_contents}/Resources")
string(CONFIGURE "${FW_PRODUCT_COPYRIGHT}" product_copyright @ONLY)
fw_make_documents("${usr}/share/doc/${FW_PRODUCT_PACKAGE}" ${FW_PRODUCT_PACKAGE} ${FW_PRODUCT_VERSION}
  "${FW_PRODUCT_CONTACT}" "${CMAKE_CURRENT_LIST_DIR}/product_copyright.in")
# In a manual page a plain - may become a hyphen, which cannot be searched for.
string(REPLACE - "\\-" manual_name "${FW_PRODUCT_PACKAGE}")
string(TOUPPER "${manual_name}" manual_title)
fw_compress("${CMAKE_CURRENT_LIST_DIR}/product.1.in" "${usr}/share/man/man1/${FW_PRODUCT_PACKAGE}.1")

set(CPACK_GENERATOR DEB)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/check_licences.cmake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
# dpkg-shlibdeps detects neither of these: one is a program, the other is loaded at run time.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dfu-util, qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "one-button firmware updater for ${FW_PRODUCT_VENDOR} units")
set(CPACK_PACKAGE_DESCRIPTION
  "Finds the unit that is plugged in, checks that the firmware is for its
model, writes it and restarts the unit.")
if(FW_BENCH_PACKAGE)
  string(APPEND CPACK_PACKAGE_DESCRIPTION "\n.\nFor the vendor's own benches: its firmware need not be for customers.")
endif()
