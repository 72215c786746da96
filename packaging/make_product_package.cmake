# Collects the files of a product's package, runs bundle_check on them, and packs them. The program
# make_product_package runs this script. Needs
#   FW_PRODUCT_RESOURCES  the product's folder
#   FW_WORK               an empty folder for intermediate files; the package is put into FW_WORK/packages
#   FW_BENCH_PACKAGE      true: the package may carry firmware that is not for customers
#   FW_DFU_UTIL, FW_DRIVER_APP, FW_PRODUCT_...   optional, see make_product_package
cmake_minimum_required(VERSION 3.25)

set(FW_DRIVER_NAME CP210xVCPDriver.app)
# Written when the vendor tools are built; sets FW_PACKAGE_SYSTEM, FW_PROGRAM, FW_BUNDLE_CHECK.
if(NOT EXISTS "${CMAKE_CURRENT_LIST_DIR}/tools.cmake")
  message(FATAL_ERROR "This is the source tree, which has no programs. Install the vendor tools and call their "
    "make_product_package: cmake --install BUILD --strip --prefix DIR")
endif()
include("${CMAKE_CURRENT_LIST_DIR}/tools.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/product_values.cmake")

set(product_icon "${FW_PRODUCT_RESOURCES}/AppIcon.ico")
if(NOT EXISTS "${product_icon}")
  message(FATAL_ERROR "There is no ${product_icon}. Every package needs the product's icon; start from "
    "resources/pictures/AppIcon.ico of the vendor tools.")
endif()
if(FW_DFU_UTIL)
  include("${CMAKE_CURRENT_LIST_DIR}/check_dfu_util.cmake")
endif()

# fw_run(COMMAND...): runs the command, and prints its output only if it fails.
function(fw_run)
  execute_process(COMMAND ${ARGV} OUTPUT_VARIABLE report ERROR_VARIABLE report RESULT_VARIABLE status)
  if(NOT status STREQUAL "0")
    message("${report}")
    message(FATAL_ERROR "No package is made, because this command failed with ${status}; its output is above: ${ARGV}")
  endif()
endfunction()

# fw_stage_product(CONTENTS): copies the product's own files. They are plain files, except for the driver
# application: its programs must stay executable, and what its vendor signed must not change. macOS has a
# separate rule for it; no other system needs it. product.cmake only describes the package, so it is left out.
function(fw_stage_product contents)
  file(COPY "${FW_PRODUCT_RESOURCES}/" DESTINATION "${contents}/Resources" NO_SOURCE_PERMISSIONS
    PATTERN "${FW_DRIVER_NAME}" EXCLUDE
    PATTERN product.cmake EXCLUDE)
  execute_process(COMMAND find "${contents}/Resources" -type l OUTPUT_VARIABLE links COMMAND_ERROR_IS_FATAL ANY)
  if(links)
    string(REPLACE "${contents}/" "  " links "${links}")
    message(FATAL_ERROR "No package is made, because these are symbolic links, and a customer's computer does not "
      "have what they point to; put the files themselves into the folder:\n${links}")
  endif()
endfunction()

# fw_stage_dfu_util(FILE CONTENTS): copies FILE as the dfu-util that the program runs.
function(fw_stage_dfu_util file contents)
  file(COPY_FILE "${file}" "${contents}/MacOS/dfu-util")
  file(CHMOD "${contents}/MacOS/dfu-util" PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()

# The package consists of the files in this folder.
set(stage "${FW_WORK}/stage")
include("${CMAKE_CURRENT_LIST_DIR}/${FW_PACKAGE_SYSTEM}/stage_product.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/check_bundle.cmake")

set(CPACK_PACKAGE_NAME "${FW_PRODUCT_PACKAGE}")
set(CPACK_PACKAGE_VERSION "${FW_PRODUCT_VERSION}")
set(CPACK_PACKAGE_VENDOR "${FW_PRODUCT_VENDOR}")
set(CPACK_PACKAGE_CONTACT "${FW_PRODUCT_CONTACT}")
set(CPACK_PACKAGE_HOMEPAGE_URL "${FW_PRODUCT_HOMEPAGE}")
set(CPACK_PACKAGE_FILE_NAME "${FW_PRODUCT_PACKAGE}-${FW_PRODUCT_VERSION}")
set(CPACK_PACKAGE_DIRECTORY "${FW_WORK}/packages")
set(CPACK_INSTALLED_DIRECTORIES "${stage};/")
get_cmake_property(names VARIABLES)
list(FILTER names INCLUDE REGEX "^CPACK_")
set(config "")
foreach(name IN LISTS names)
  string(APPEND config "set(${name} [==[${${name}}]==])\n")
endforeach()
file(WRITE "${FW_WORK}/CPackConfig.cmake" "${config}")
fw_run(cpack --config "${FW_WORK}/CPackConfig.cmake")
file(REMOVE_RECURSE "${FW_WORK}/packages/_CPack_Packages")
