# The Debian package for the vendor's own benches.

set(fw_contents "lib/${FW_PACKAGE_NAME}/Contents")
set(fw_dfu_util "${CMAKE_CURRENT_SOURCE_DIR}/dfu-util-launcher")

set(made "${CMAKE_CURRENT_BINARY_DIR}/linux")
file(MAKE_DIRECTORY "${made}")
# The date in the changelog. SOURCE_DATE_EPOCH in the environment makes packages reproducible.
string(TIMESTAMP FW_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(file IN ITEMS changelog copyright)
  configure_file(linux/${file}.in "${made}/${file}" @ONLY)
endforeach()
configure_file(linux/program.1.in "${made}/${FW_PACKAGE_NAME}.1" @ONLY)
foreach(kind IN ITEMS desktop metainfo.xml)
  configure_file(linux/program.${kind}.in "${made}/${FW_APPLICATION_ID}.${kind}" @ONLY)
endforeach()

set(package_files "")
foreach(file IN ITEMS changelog ${FW_PACKAGE_NAME}.1)
  add_custom_command(OUTPUT "${made}/${file}.gz"
    COMMAND gzip --best --no-name --keep --force "${made}/${file}"
    DEPENDS "${made}/${file}"
    COMMENT "Compressing ${file}"
    VERBATIM)
  list(APPEND package_files "${made}/${file}.gz")
endforeach()

# 72 comes before 73-seat-late.rules, which grants access to tagged devices.
set(udev_rules "${made}/72-${FW_PACKAGE_NAME}.rules")
add_custom_command(OUTPUT "${udev_rules}"
  COMMAND "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_SOURCE_DIR}/linux/make_udev_rules.py"
    "${product_config}" "${udev_rules}"
  DEPENDS linux/make_udev_rules.py "${product_config}"
  COMMENT "Writing the udev rules"
  VERBATIM)
list(APPEND package_files "${udev_rules}")

set(icons "${made}/hicolor")
add_custom_command(OUTPUT "${icons}.stamp"
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${icons}"
  COMMAND "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_SOURCE_DIR}/extract_icons.py"
    "${product_icon}" --hicolor "${icons}" ${FW_PACKAGE_NAME}
  COMMAND "${CMAKE_COMMAND}" -E touch "${icons}.stamp"
  DEPENDS extract_icons.py "${product_icon}"
  COMMENT "Extracting the icons"
  VERBATIM)
list(APPEND package_files "${icons}.stamp")
add_custom_target(package_files ALL DEPENDS ${package_files})

# The program finds its own directory through /proc/self/exe, so a link in PATH is enough.
file(CREATE_LINK "../${fw_contents}/MacOS/firmware_updater" "${made}/${FW_PACKAGE_NAME}" SYMBOLIC)
install(FILES "${made}/${FW_PACKAGE_NAME}" DESTINATION bin)
install(DIRECTORY "${icons}" DESTINATION share/icons)
install(FILES "${made}/${FW_APPLICATION_ID}.desktop" DESTINATION share/applications)
install(FILES "${made}/${FW_APPLICATION_ID}.metainfo.xml" DESTINATION share/metainfo)
install(FILES "${made}/changelog.gz" "${made}/copyright" DESTINATION share/doc/${FW_PACKAGE_NAME})
install(FILES "${made}/${FW_PACKAGE_NAME}.1.gz" DESTINATION share/man/man1)
install(FILES "${udev_rules}" DESTINATION lib/udev/rules.d)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/linux/directory_rights.cmake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
# dpkg-shlibdeps detects neither: one is a program, the other is loaded at run time.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dfu-util, qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "one-button firmware updater for Kelvane units")
set(CPACK_PACKAGE_DESCRIPTION
  "Finds the unit that is plugged in, checks that the firmware is for its
model, writes it and restarts the unit.
.
This package is for the vendor's own benches and carries one product.")
