# Finds the board's firmware library (bcm_host.h, libbcm_host). On any other machine BcmHost_FOUND stays false and
# src/platform/ builds the stand-in.
find_path(BcmHost_INCLUDE_DIR bcm_host.h PATHS /opt/vc/include)
find_library(BcmHost_LIBRARY bcm_host PATHS /opt/vc/lib)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(BcmHost REQUIRED_VARS BcmHost_LIBRARY BcmHost_INCLUDE_DIR)
if(BcmHost_FOUND AND NOT TARGET BcmHost::BcmHost)
    add_library(BcmHost::BcmHost UNKNOWN IMPORTED)
    set_target_properties(BcmHost::BcmHost PROPERTIES
        IMPORTED_LOCATION ${BcmHost_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${BcmHost_INCLUDE_DIR})
endif()
