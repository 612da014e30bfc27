// What GStreamer's loader asks for.
#include <gst/gst.h>

#include "gstreamer/ardenvuesrc.h"

#define PACKAGE "ardenvue"  // by which GST_PLUGIN_DEFINE names the source module

namespace {

gboolean init(GstPlugin* plugin) {
    return gst_element_register(plugin, "ardenvuesrc", GST_RANK_NONE, ardenvue_src_get_type());
}

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, ardenvue, "Live video of the Ardenvue service", init,
                  ARDENVUE_VERSION, GST_LICENSE_UNKNOWN, "ardenvue", "https://ardenvue.example/")
