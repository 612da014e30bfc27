// The element ardenvuesrc.
#pragma once

#include <gst/base/gstpushsrc.h>
#include <gst/gst.h>

G_DECLARE_FINAL_TYPE(ArdenvueSrc, ardenvue_src, ARDENVUE, SRC, GstPushSrc)
