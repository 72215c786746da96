# Makes the documents that Debian requires in every package, from templates, and compresses them as it requires.

# The dates in a package. SOURCE_DATE_EPOCH in the environment makes packages reproducible.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP year "%Y" UTC)

# fw_compress(TEMPLATE FILE): makes FILE.gz from the template.
function(fw_compress template file)
  configure_file("${template}" "${file}" @ONLY)
  execute_process(COMMAND gzip --best --no-name --force "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# fw_make_documents(FOLDER PACKAGE VERSION CONTACT COPYRIGHT): makes changelog.gz in FOLDER, and copyright from
# the template COPYRIGHT.
function(fw_make_documents folder package version contact copyright)
  fw_compress("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/changelog.in" "${folder}/changelog")
  configure_file("${copyright}" "${folder}/copyright" @ONLY)
endfunction()
