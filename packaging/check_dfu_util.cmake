# Checks that the dfu-util in FW_DFU_UTIL supports the modifier "fast", which every download uses. A tool
# that does not support it ends at once without writing anything, and the window says DONE.

execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/dfu-util-launcher" --accepts-fast "${FW_DFU_UTIL}"
  RESULT_VARIABLE status OUTPUT_VARIABLE report ERROR_VARIABLE report TIMEOUT 10)
if(NOT status STREQUAL "0")
  message(FATAL_ERROR "The given dfu-util cannot be used: ${report}")
endif()
