# GStreamer's base library for the target GStreamer::Base. Looked for by its files, not by pkg-config: a cross build has them
# in a folder of its own (scripts/cross-setup), whose packages can't always be installed beside the build machine's.
foreach(header gst:gst/gst.h:gstreamer-1.0 glib:glib.h:glib-2.0)
    string(REGEX MATCH "^(.*):(.*):(.*)$" parts ${header})
    find_path(GStreamer_${CMAKE_MATCH_1}_INCLUDE ${CMAKE_MATCH_2} PATH_SUFFIXES ${CMAKE_MATCH_3})
endforeach()
find_path(GStreamer_glibconfig_INCLUDE glibconfig.h
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/glib-2.0/include ${CMAKE_PREFIX_PATH}/lib/glib-2.0/include)
set(GStreamer_libraries "")
set(required GStreamer_gst_INCLUDE GStreamer_glib_INCLUDE GStreamer_glibconfig_INCLUDE)
foreach(library gstbase-1.0 gstreamer-1.0 gobject-2.0 glib-2.0)
    find_library(GStreamer_${library}_LIBRARY ${library})
    list(APPEND GStreamer_libraries ${GStreamer_${library}_LIBRARY})
    list(APPEND required GStreamer_${library}_LIBRARY)
endforeach()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GStreamer REQUIRED_VARS ${required})
if(GStreamer_FOUND AND NOT TARGET GStreamer::Base)
    add_library(GStreamer::Base INTERFACE IMPORTED)
    target_include_directories(GStreamer::Base SYSTEM INTERFACE
        ${GStreamer_gst_INCLUDE} ${GStreamer_glib_INCLUDE} ${GStreamer_glibconfig_INCLUDE})
    target_link_libraries(GStreamer::Base INTERFACE ${GStreamer_libraries})
endif()
