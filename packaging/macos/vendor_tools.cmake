# The disk image of the vendor tools: one folder with two applications, each with its own copy of Qt. Each
# product's application is made from that of the program; the other one holds the programs for vendors. On
# Linux the tests can check only where the files go, so this file is kept short.

set(FW_DFU_UTIL "" CACHE FILEPATH
  "The dfu-util for the applications of products, which must know the modifier \"fast\"; with its libraries")
set(fw_folder ${CPACK_PACKAGE_NAME})

# macdeployqt finds Qt through the paths in the programs, and replaces them.
set_target_properties(firmware_updater bundle_check make_otp session_view PROPERTIES
  INSTALL_RPATH_USE_LINK_PATH TRUE)
set_target_properties(firmware_updater bundle_check PROPERTIES MACOSX_BUNDLE TRUE)
set_target_properties(firmware_updater PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/tools.cmake" "# Where the vendor tools are; made by their build.
set(FW_PACKAGE_SYSTEM macos)
set(FW_PROGRAM \"\${CMAKE_CURRENT_LIST_DIR}/../firmware_updater.app\")
set(FW_BUNDLE_CHECK \"\${CMAKE_CURRENT_LIST_DIR}/../bundle_check.app/Contents/MacOS/bundle_check\")
set(FW_OLDEST_MACOS ${CMAKE_OSX_DEPLOYMENT_TARGET})
")

# fw_deploy_qt(APP PLUGIN EXECUTABLES...): copies into the installed APP the libraries that it and its further
# EXECUTABLES (paths below Contents) need. macdeployqt reports success even if it has copied nothing, so
# its result is checked: Qt's core and the platform PLUGIN must be there.
function(fw_deploy_qt app plugin)
  get_target_property(qmake Qt6::qmake IMPORTED_LOCATION)
  get_filename_component(qt_programs "${qmake}" DIRECTORY)
  find_program(FW_MACDEPLOYQT macdeployqt HINTS "${qt_programs}" REQUIRED)
  install(CODE "
    set(app \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${fw_folder}/${app}\")
    set(options -always-overwrite)
    foreach(executable IN ITEMS ${ARGN})
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
    endforeach()")
endfunction()

install(TARGETS firmware_updater BUNDLE DESTINATION "${fw_folder}"
  RUNTIME DESTINATION "${fw_folder}/firmware_updater.app/Contents/MacOS")
if(FW_DFU_UTIL)
  include("${CMAKE_CURRENT_LIST_DIR}/../check_dfu_util.cmake")
  install(PROGRAMS "${FW_DFU_UTIL}" DESTINATION "${fw_folder}/firmware_updater.app/Contents/MacOS"
    RENAME dfu-util)
endif()
fw_deploy_qt(firmware_updater.app libqcocoa.dylib MacOS/dfu-util)

# bundle_check shows no window, so it needs a platform plugin that macdeployqt does not copy by itself.
set(tools "${fw_folder}/bundle_check.app/Contents")
install(TARGETS bundle_check BUNDLE DESTINATION "${fw_folder}" RUNTIME DESTINATION "${tools}/MacOS")
install(TARGETS make_otp session_view DESTINATION "${tools}/MacOS")
if(TARGET Qt6::QOffscreenIntegrationPlugin)
  install(FILES $<TARGET_FILE:Qt6::QOffscreenIntegrationPlugin> DESTINATION "${tools}/PlugIns/platforms")
endif()
fw_deploy_qt(bundle_check.app libqoffscreen.dylib
  MacOS/make_otp MacOS/session_view PlugIns/platforms/libqoffscreen.dylib)

set(CPACK_GENERATOR DragNDrop)
set(CPACK_DMG_VOLUME_NAME "Kelvane vendor tools")
set(CPACK_PACKAGE_FILE_NAME "${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}")
