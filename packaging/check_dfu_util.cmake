# Proves that the dfu-util named by FW_DFU_UTIL knows the modifier "fast", which every download of the
# program asks for: a tool that does not know it ends at once with nothing written, and the window says
# DONE. Included, or by itself: cmake -D FW_DFU_UTIL=FILE -P check_dfu_util.cmake

execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/dfu-util-launcher" --accepts-fast "${FW_DFU_UTIL}"
  RESULT_VARIABLE status OUTPUT_VARIABLE report ERROR_VARIABLE report TIMEOUT 10)
if(NOT status STREQUAL "0")
  message(FATAL_ERROR "FW_DFU_UTIL: ${report}")
endif()
