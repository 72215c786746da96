# The product's name and version, for the program, its packages and their documents.

set(FW_VERSION 1.0.0)
set(FW_PROGRAM_TITLE "Kelvane Firmware Updater")
# A desktop finds the entry, and so the icon, that belongs to a window by this id.
set(FW_APPLICATION_ID com.kelvane.firmwareupdater)
set(FW_PACKAGE_NAME kelvane-firmware-updater)
