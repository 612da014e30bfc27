#include "gstreamer/ardenvuesrc.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "gstreamer/frame_source.h"

GST_DEBUG_CATEGORY_STATIC(ardenvue_src_debug);
#define GST_CAT_DEFAULT ardenvue_src_debug

using gstreamer::FrameSource;
using gstreamer::Picture;

struct _ArdenvueSrc {
    GstPushSrc parent;

    // Set below GST_STATE_PAUSED; read by the streaming thread.
    gchar* ring;
    ArdenvueStart start;
    gboolean eos_on_restart;

    FrameSource* source;  // from start to stop
    gint width;
    gint height;
    GstClockTime last_time;
};

G_DEFINE_FINAL_TYPE(ArdenvueSrc, ardenvue_src, GST_TYPE_PUSH_SRC)

namespace {

enum Property : guint { property_ring = 1, property_start, property_eos_on_restart, property_missed };

// The ring is looked into every 3 ms, and a picture is handed on as soon as it is read: what waits in a queue
// then waits for the pipeline.
constexpr GstClockTime least_latency = 5 * GST_MSECOND;

GstStaticPadTemplate source_template = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-h264, stream-format=(string)byte-stream, alignment=(string)au"));

GType start_type() {
    static const GEnumValue values[] = {
        {ARDENVUE_START_KEY, "The newest key picture that is still held: a picture at once", "key"},
        {ARDENVUE_START_NEWEST, "The newest frame", "newest"},
        {ARDENVUE_START_OLDEST, "The oldest frame that is safe to read", "oldest"},
        {ARDENVUE_START_NEXT, "The first frame that comes from now on", "next"},
        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("ArdenvueSrcStart", values);
    return type;
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* parameter) {
    ArdenvueSrc* self = ARDENVUE_SRC(object);
    switch (id) {
        case property_ring:
            g_free(self->ring);
            self->ring = g_value_dup_string(value);
            break;
        case property_start:
            self->start = static_cast<ArdenvueStart>(g_value_get_enum(value));
            break;
        case property_eos_on_restart:
            self->eos_on_restart = g_value_get_boolean(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, parameter);
    }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* parameter) {
    ArdenvueSrc* self = ARDENVUE_SRC(object);
    switch (id) {
        case property_ring:
            g_value_set_string(value, self->ring);
            break;
        case property_start:
            g_value_set_enum(value, self->start);
            break;
        case property_eos_on_restart:
            g_value_set_boolean(value, self->eos_on_restart);
            break;
        case property_missed:
            GST_OBJECT_LOCK(self);
            g_value_set_uint64(value, self->source == nullptr ? 0 : self->source->missed());
            GST_OBJECT_UNLOCK(self);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, parameter);
    }
}

void finalize(GObject* object) {
    g_free(ARDENVUE_SRC(object)->ring);
    G_OBJECT_CLASS(ardenvue_src_parent_class)->finalize(object);
}

void set_source(ArdenvueSrc* self, FrameSource* source) {
    GST_OBJECT_LOCK(self);
    const std::unique_ptr<FrameSource> before{self->source};
    self->source = source;
    GST_OBJECT_UNLOCK(self);
}

gboolean start(GstBaseSrc* base) {
    ArdenvueSrc* self = ARDENVUE_SRC(base);
    std::string reason;
    std::unique_ptr<FrameSource> source = FrameSource::open(self->ring, self->start, reason);
    if (!source) {
        GST_ELEMENT_ERROR(self, RESOURCE, OPEN_READ, ("%s", reason.c_str()), (nullptr));
        return FALSE;
    }
    set_source(self, source.release());
    self->width = self->height = 0;
    self->last_time = GST_CLOCK_TIME_NONE;
    return TRUE;
}

gboolean stop(GstBaseSrc* base) {
    set_source(ARDENVUE_SRC(base), nullptr);
    return TRUE;
}

gboolean unlock(GstBaseSrc* base) {
    ARDENVUE_SRC(base)->source->interrupt(true);
    return TRUE;
}

gboolean unlock_stop(GstBaseSrc* base) {
    ARDENVUE_SRC(base)->source->interrupt(false);
    return TRUE;
}

// The caps come with the first picture, which tells its size.
gboolean negotiate(GstBaseSrc* /*base*/) {
    return TRUE;
}

gboolean query(GstBaseSrc* base, GstQuery* query) {
    if (GST_QUERY_TYPE(query) == GST_QUERY_LATENCY) {
        gst_query_set_latency(query, TRUE, least_latency, GST_CLOCK_TIME_NONE);
        return TRUE;
    }
    return GST_BASE_SRC_CLASS(ardenvue_src_parent_class)->query(base, query);
}

// When the picture came, on the pipeline's clock; later than the one before. Clocks of the system tick
// together, so the age of the picture is the same on each.
GstClockTime running_time(ArdenvueSrc* self, std::int64_t arrival_ns) {
    GstClock* clock = gst_element_get_clock(GST_ELEMENT(self));
    GstClockTime time = 0;
    if (clock != nullptr) {
        const GstClockTimeDiff age = g_get_monotonic_time() * 1000 - arrival_ns;
        const GstClockTimeDiff now =
            GST_CLOCK_DIFF(gst_element_get_base_time(GST_ELEMENT(self)), gst_clock_get_time(clock));
        gst_object_unref(clock);
        time = static_cast<GstClockTime>(MAX(now - MAX(age, 0), 0));
    }
    if (GST_CLOCK_TIME_IS_VALID(self->last_time) && time <= self->last_time) {
        time = self->last_time + 1;
    }
    self->last_time = time;
    return time;
}

bool set_caps(ArdenvueSrc* self, const std::optional<formats::PictureSize>& size) {
    if (self->width != 0 && (!size || (size->width == self->width && size->height == self->height))) {
        return true;
    }
    GstCaps* caps = gst_static_pad_template_get_caps(&source_template);
    caps = gst_caps_make_writable(caps);
    if (size) {
        self->width = size->width;
        self->height = size->height;
        gst_caps_set_simple(caps, "width", G_TYPE_INT, self->width, "height", G_TYPE_INT, self->height,
                            nullptr);
    } else {
        self->width = -1;  // nothing is known of it, which is told once
    }
    const bool is_set = gst_base_src_set_caps(GST_BASE_SRC(self), caps) != FALSE;
    gst_caps_unref(caps);
    return is_set;
}

GstFlowReturn create(GstPushSrc* push, GstBuffer** buffer) {
    ArdenvueSrc* self = ARDENVUE_SRC(push);
    std::unique_ptr<Picture> picture = self->source->next();
    if (!picture) {
        return GST_FLOW_FLUSHING;
    }
    if (picture->follows_restart) {
        GST_INFO_OBJECT(self, "the service has started anew");
        if (self->eos_on_restart) {
            return GST_FLOW_EOS;
        }
    }
    if (!set_caps(self, picture->size)) {
        return GST_FLOW_NOT_NEGOTIATED;
    }
    // The buffer takes the picture's bytes along.
    std::vector<std::uint8_t>& bytes = picture->bytes;
    *buffer =
        gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, bytes.data(), bytes.size(), 0, bytes.size(),
                                    picture.get(), [](gpointer data) { delete static_cast<Picture*>(data); });
    GST_BUFFER_PTS(*buffer) = GST_BUFFER_DTS(*buffer) = running_time(self, picture->time_ns);
    if (picture->is_discontinuous) {
        GST_BUFFER_FLAG_SET(*buffer, GST_BUFFER_FLAG_DISCONT);
    }
    if (!picture->is_key) {
        GST_BUFFER_FLAG_SET(*buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    }
    [[maybe_unused]] Picture* const owned_by_buffer = picture.release();
    return GST_FLOW_OK;
}

void install_properties(GObjectClass* object) {
    const auto flags =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(
        object, property_ring,
        g_param_spec_string("ring", "Ring",
                            "Shared-memory name of the live video; the service's own when not given", nullptr,
                            flags));
    g_object_class_install_property(object, property_start,
                                    g_param_spec_enum("start", "Start", "Which frame comes first",
                                                      start_type(), ARDENVUE_START_KEY, flags));
    g_object_class_install_property(
        object, property_eos_on_restart,
        g_param_spec_boolean("eos-on-restart", "EOS on restart",
                             "End the stream when the service has started anew, instead of going on", FALSE,
                             flags));
    g_object_class_install_property(
        object, property_missed,
        g_param_spec_uint64("missed", "Missed", "Frames that were sent and not handed on", 0, G_MAXUINT64, 0,
                            static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
}

}  // namespace

static void ardenvue_src_class_init(ArdenvueSrcClass* type) {
    GObjectClass* object = G_OBJECT_CLASS(type);
    object->set_property = set_property;
    object->get_property = get_property;
    object->finalize = finalize;
    install_properties(object);

    GstElementClass* element = GST_ELEMENT_CLASS(type);
    gst_element_class_set_static_metadata(
        element, "Ardenvue live video", "Source/Video",
        "Live H.264 video of the Ardenvue service, whole pictures with the times of their arrival",
        "Ardenvue maintainers <maintainers@ardenvue.example>");
    gst_element_class_add_static_pad_template(element, &source_template);
    gst_type_mark_as_plugin_api(start_type(), static_cast<GstPluginAPIFlags>(0));

    GstBaseSrcClass* source = GST_BASE_SRC_CLASS(type);
    source->start = start;
    source->stop = stop;
    source->unlock = unlock;
    source->unlock_stop = unlock_stop;
    source->negotiate = negotiate;
    source->query = query;
    GST_PUSH_SRC_CLASS(type)->create = create;
    GST_DEBUG_CATEGORY_INIT(ardenvue_src_debug, "ardenvuesrc", 0, "Ardenvue live video");
}

static void ardenvue_src_init(ArdenvueSrc* self) {
    gst_base_src_set_live(GST_BASE_SRC(self), TRUE);
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
    self->start = ARDENVUE_START_KEY;
}
