# A product's application in a disk image for customers: the program's application from the vendor tools,
# with Qt in it, under the product's name and with its files. On Linux the tests can check only where the
# files go, so this file is kept short.

set(bundle "${stage}/${FW_PRODUCT_TITLE}.app")
set(contents "${bundle}/Contents")

if(NOT FW_DRIVER_APP)
  set(FW_DRIVER_APP "${FW_PRODUCT_RESOURCES}/${FW_DRIVER_NAME}")
elseif(NOT EXISTS "${FW_DRIVER_APP}/Contents/MacOS/CP210xVCPDriver")
  message(FATAL_ERROR "${FW_DRIVER_APP} is not the driver application; give CP210xVCPDriver.app as its vendor signed it.")
endif()

# A signature made before this point would no longer be valid.
file(COPY "${FW_PROGRAM}/" DESTINATION "${bundle}" REGEX "Contents/_CodeSignature$" EXCLUDE)
file(RENAME "${contents}/MacOS/firmware_updater" "${contents}/MacOS/${FW_PRODUCT_TITLE}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/Info.plist.in" "${contents}/Info.plist" @ONLY)
if(FW_DFU_UTIL)
  fw_stage_dfu_util("${FW_DFU_UTIL}" "${contents}")
endif()
fw_stage_product("${contents}")
fw_run("${CMAKE_CURRENT_LIST_DIR}/../extract_icons.py" "${product_icon}"
  --icns "${contents}/Resources/AppIcon.icns")
if(EXISTS "${FW_DRIVER_APP}")
  file(COPY "${FW_DRIVER_APP}/" DESTINATION "${contents}/Resources/${FW_DRIVER_NAME}")
endif()

set(CPACK_GENERATOR DragNDrop)
set(CPACK_DMG_VOLUME_NAME "${FW_PRODUCT_TITLE}")
