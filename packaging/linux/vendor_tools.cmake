# The Debian package of the vendor tools.

include("${CMAKE_CURRENT_LIST_DIR}/documents.cmake")
set(fw_folder share/${CPACK_PACKAGE_NAME})
set(programs bundle_check make_otp session_view)

# The program is not a command, because it needs a product beside it.
install(TARGETS firmware_updater DESTINATION lib/${CPACK_PACKAGE_NAME})
install(TARGETS ${programs} DESTINATION bin)
file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/tools.cmake" "# Where the vendor tools are; made by their build.
set(FW_PACKAGE_SYSTEM linux)
set(FW_PROGRAM \"\${CMAKE_CURRENT_LIST_DIR}/../../../lib/${CPACK_PACKAGE_NAME}/firmware_updater\")
set(FW_BUNDLE_CHECK \"\${CMAKE_CURRENT_LIST_DIR}/../../../bin/bundle_check\")
")

set(made "${CMAKE_CURRENT_BINARY_DIR}/linux")
file(MAKE_DIRECTORY "${made}")
file(CREATE_LINK ../${fw_folder}/packaging/make_product_package "${made}/make_product_package" SYMBOLIC)
install(FILES "${made}/make_product_package" DESTINATION bin)
file(CREATE_LINK ../../${CPACK_PACKAGE_NAME}/docs "${made}/guide" SYMBOLIC)
fw_make_documents("${made}" ${CPACK_PACKAGE_NAME} ${PROJECT_VERSION} "${CPACK_PACKAGE_CONTACT}"
  "${CMAKE_CURRENT_LIST_DIR}/vendor_tools/copyright.in")
install(FILES "${made}/changelog.gz" "${made}/copyright" "${made}/guide"
  DESTINATION share/doc/${CPACK_PACKAGE_NAME})
foreach(program IN LISTS programs ITEMS make_product_package)
  fw_compress("${CMAKE_CURRENT_LIST_DIR}/vendor_tools/${program}.1.in" "${made}/${program}.1")
  install(FILES "${made}/${program}.1.gz" DESTINATION share/man/man1)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/vendor_tools/directory_rights.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/check_licences.cmake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
# The programs that make_product_package calls. A compiler is not among them.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "cmake (>= 3.25), dfu-util, dpkg-dev, file, python3")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tools for vendors who ship a firmware updater")
set(CPACK_PACKAGE_DESCRIPTION
  "Checks a product's folder (configuration, firmware image, fonts and
pictures) before a customer sees it, and makes the package of the updater
for this product.
.
Also makes and reads the contents of a unit's OTP area, shows the record of
a customer's session, and has a C header for device firmware, examples and
the guide for vendors.")
