# The Debian packages: the product's, and that of bundle_check.

set(fw_contents "lib/${FW_PRODUCT_PACKAGE}/Contents")
set(fw_dfu_util "${CMAKE_CURRENT_SOURCE_DIR}/dfu-util-launcher")

set(made "${CMAKE_CURRENT_BINARY_DIR}/linux")
file(MAKE_DIRECTORY "${made}")
# The date in the changelogs. SOURCE_DATE_EPOCH in the environment makes packages reproducible.
string(TIMESTAMP FW_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP year "%Y" UTC)

set(package_files "")
# fw_make_documents(PACKAGE VERSION CONTACT MANUAL COMPONENT): changelog, copyright and the manual page
# MANUAL.in of a package.
function(fw_make_documents package version contact manual component)
  set(folder "${made}/documents/${package}")
  # In a manual page a plain - may become a hyphen, which cannot be searched for.
  string(REPLACE - "\\-" manual_name "${manual}")
  string(TOUPPER "${manual_name}" manual_title)
  configure_file(linux/changelog.in "${folder}/changelog" @ONLY)
  configure_file(linux/${component}_copyright.in "${folder}/copyright" @ONLY)
  configure_file(linux/${component}.1.in "${folder}/${manual}.1" @ONLY)
  foreach(file IN ITEMS changelog ${manual}.1)
    add_custom_command(OUTPUT "${folder}/${file}.gz"
      COMMAND gzip --best --no-name --keep --force "${folder}/${file}"
      DEPENDS "${folder}/${file}"
      COMMENT "Compressing ${file}"
      VERBATIM)
    list(APPEND package_files "${folder}/${file}.gz")
  endforeach()
  set(package_files "${package_files}" PARENT_SCOPE)
  install(FILES "${folder}/changelog.gz" "${folder}/copyright" DESTINATION share/doc/${package}
    COMPONENT ${component} ${ARGN})
  install(FILES "${folder}/${manual}.1.gz" DESTINATION share/man/man1
    COMPONENT ${component} ${ARGN})
endfunction()

# The paragraphs of the product may be as many as it needs, also none.
set(resources "usr/${fw_contents}/Resources")
string(CONFIGURE "${FW_PRODUCT_COPYRIGHT}" product_copyright @ONLY)
fw_make_documents(${FW_PRODUCT_PACKAGE} ${FW_PRODUCT_VERSION} "${FW_PRODUCT_CONTACT}"
  ${FW_PRODUCT_PACKAGE} product)
foreach(kind IN ITEMS desktop metainfo.xml)
  configure_file(linux/product.${kind}.in "${made}/${FW_PRODUCT_ID}.${kind}" @ONLY)
endforeach()

# 72 comes before 73-seat-late.rules, which grants access to tagged devices.
set(udev_rules "${made}/72-${FW_PRODUCT_PACKAGE}.rules")
add_custom_command(OUTPUT "${udev_rules}"
  COMMAND bundle_check --udev-rules "${product_config}" > "${udev_rules}"
  DEPENDS bundle_check "${product_config}"
  COMMENT "Writing the udev rules"
  VERBATIM)
list(APPEND package_files "${udev_rules}")

set(icons "${made}/hicolor")
add_custom_command(OUTPUT "${icons}.stamp"
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${icons}"
  COMMAND "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_SOURCE_DIR}/extract_icons.py"
    "${product_icon}" --hicolor "${icons}" ${FW_PRODUCT_PACKAGE}
  COMMAND "${CMAKE_COMMAND}" -E touch "${icons}.stamp"
  DEPENDS extract_icons.py "${product_icon}"
  COMMENT "Extracting the icons"
  VERBATIM)
list(APPEND package_files "${icons}.stamp")

# The program finds its own directory through /proc/self/exe, so a link in PATH is enough.
file(CREATE_LINK "../${fw_contents}/MacOS/firmware_updater" "${made}/${FW_PRODUCT_PACKAGE}" SYMBOLIC)
install(FILES "${made}/${FW_PRODUCT_PACKAGE}" DESTINATION bin)
install(DIRECTORY "${icons}" DESTINATION share/icons)
install(FILES "${made}/${FW_PRODUCT_ID}.desktop" DESTINATION share/applications)
install(FILES "${made}/${FW_PRODUCT_ID}.metainfo.xml" DESTINATION share/metainfo)
install(FILES "${udev_rules}" DESTINATION lib/udev/rules.d)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(package_scripts "${CMAKE_CURRENT_SOURCE_DIR}/linux/directory_rights.cmake"
  "${CMAKE_CURRENT_SOURCE_DIR}/linux/check_licences.cmake")
set(CPACK_PRE_BUILD_SCRIPTS ${package_scripts})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
# dpkg-shlibdeps detects neither: one is a program, the other is loaded at run time.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dfu-util, qt6-qpa-plugins")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "one-button firmware updater for ${FW_PRODUCT_VENDOR} units")
set(CPACK_PACKAGE_DESCRIPTION
  "Finds the unit that is plugged in, checks that the firmware is for its
model, writes it and restarts the unit.
.
This package carries one product, for the vendor's own benches.")

# bundle_check, which is not part of what customers get.
fw_make_documents(${FW_BUNDLE_CHECK_PACKAGE} ${FW_VERSION} "${FW_CONTACT}" bundle_check bundle_check
  EXCLUDE_FROM_ALL)
install(TARGETS bundle_check DESTINATION bin COMPONENT bundle_check EXCLUDE_FROM_ALL)

add_custom_target(package_files ALL DEPENDS ${package_files})
