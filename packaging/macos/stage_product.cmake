# The application bundle and the disk image for customers, and a disk image with bundle_check for vendors. On Linux the
# tests can check only where the files go, so this file is kept short.

set(FW_DRIVER_APP "" CACHE PATH
  "CP210xVCPDriver.app as its vendor signed it; if not set, the one in the product's resource directory")
if(NOT FW_DRIVER_APP AND EXISTS "${product_resources}/${FW_DRIVER_NAME}")
  set(FW_DRIVER_APP "${product_resources}/${FW_DRIVER_NAME}")
endif()
foreach(part IN ITEMS FW_DFU_UTIL FW_DRIVER_APP)
  if(NOT ${part})
    message(WARNING "${part} is not set: do not ship this bundle")
  endif()
endforeach()
if(FW_DRIVER_APP AND NOT EXISTS "${FW_DRIVER_APP}/Contents/MacOS/CP210xVCPDriver")
  message(FATAL_ERROR "FW_DRIVER_APP: ${FW_DRIVER_APP} is not the driver application")
endif()

set(fw_dfu_util "")
set(bundle "${FW_PRODUCT_TITLE}.app")
set(fw_contents "${bundle}/Contents")
configure_file(macos/Info.plist.in "${CMAKE_CURRENT_BINARY_DIR}/Info.plist" @ONLY)
# macdeployqt finds Qt through the paths in the program, and replaces them.
set_target_properties(firmware_updater PROPERTIES
  INSTALL_RPATH_USE_LINK_PATH TRUE
  MACOSX_BUNDLE TRUE
  MACOSX_BUNDLE_INFO_PLIST "${CMAKE_CURRENT_BINARY_DIR}/Info.plist"
  OUTPUT_NAME "${FW_PRODUCT_TITLE}"
  RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

set(icon "${CMAKE_CURRENT_BINARY_DIR}/AppIcon.icns")
add_custom_command(OUTPUT "${icon}"
  COMMAND "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_SOURCE_DIR}/extract_icons.py"
    "${product_icon}" --icns "${icon}"
  DEPENDS extract_icons.py "${product_icon}"
  COMMENT "Making AppIcon.icns"
  VERBATIM)
add_custom_target(package_files ALL DEPENDS "${icon}")

# fw_deploy_qt(APP COMPONENT EXECUTABLES PLUGIN [EXCLUDE_FROM_ALL]): copies the libraries of the installed
# APP and its further EXECUTABLES (paths below Contents) into it. macdeployqt reports success even if it
# has copied nothing, so its result is checked: Qt's core and the platform PLUGIN must be there.
function(fw_deploy_qt app component executables plugin)
  get_target_property(qmake Qt6::qmake IMPORTED_LOCATION)
  get_filename_component(qt_programs "${qmake}" DIRECTORY)
  find_program(FW_MACDEPLOYQT macdeployqt HINTS "${qt_programs}" REQUIRED)
  install(CODE "
    set(app \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${app}\")
    set(options -always-overwrite)
    foreach(executable IN ITEMS ${executables})
      if(EXISTS \"\${app}/Contents/\${executable}\")
        list(APPEND options \"-executable=\${app}/Contents/\${executable}\")
      endif()
    endforeach()
    execute_process(COMMAND \"${FW_MACDEPLOYQT}\" \"\${app}\" \${options}
      COMMAND_ERROR_IS_FATAL ANY)
    foreach(part IN ITEMS Frameworks/QtCore.framework PlugIns/platforms/${plugin})
      if(NOT EXISTS \"\${app}/Contents/\${part}\")
        message(FATAL_ERROR \"macdeployqt did not copy \${part} into \${app}; its messages are above\")
      endif()
    endforeach()" COMPONENT ${component} ${ARGN})
endfunction()

# fw_install_macos_bundle(): call it after the program and dfu-util are installed, because it copies
# their libraries into the bundle. It installs the driver application last, which must not change.
function(fw_install_macos_bundle)
  fw_deploy_qt("${bundle}" product MacOS/dfu-util libqcocoa.dylib)
  install(FILES "${icon}" DESTINATION "${fw_contents}/Resources")
  if(FW_DRIVER_APP)
    install(DIRECTORY "${FW_DRIVER_APP}/" USE_SOURCE_PERMISSIONS
      DESTINATION "${fw_contents}/Resources/${FW_DRIVER_NAME}")
  endif()
endfunction()

# bundle_check, for vendors, in a disk image of its own. It shows no window, so it needs another platform
# plugin than the one that macdeployqt copies by itself.
set_target_properties(bundle_check PROPERTIES INSTALL_RPATH_USE_LINK_PATH TRUE MACOSX_BUNDLE TRUE)
install(TARGETS bundle_check
  BUNDLE DESTINATION . COMPONENT bundle_check EXCLUDE_FROM_ALL
  RUNTIME DESTINATION bundle_check.app/Contents/MacOS COMPONENT bundle_check EXCLUDE_FROM_ALL)
if(TARGET Qt6::QOffscreenIntegrationPlugin)
  install(FILES $<TARGET_FILE:Qt6::QOffscreenIntegrationPlugin>
    DESTINATION bundle_check.app/Contents/PlugIns/platforms
    COMPONENT bundle_check EXCLUDE_FROM_ALL)
endif()
fw_deploy_qt(bundle_check.app bundle_check PlugIns/platforms/libqoffscreen.dylib libqoffscreen.dylib
  EXCLUDE_FROM_ALL)

# Stripping would break the driver application's signature.
set(CPACK_STRIP_FILES FALSE)
set(CPACK_GENERATOR DragNDrop)
set(CPACK_DMG_VOLUME_NAME "${FW_PRODUCT_TITLE}")
set(CPACK_PACKAGE_FILE_NAME "${FW_PRODUCT_PACKAGE}-${FW_PRODUCT_VERSION}")
set(package_scripts "")
