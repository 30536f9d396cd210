// Runs one pipeline description to its end as an application does (parse, play, wait on the bus for
// an error or the end of stream, stop) and prints each error as gst-launch-1.0 does:
//   ERROR: from element /GstPipeline:pipeline0/GstX:name: message
// Exit code 1 after an error, 2 when nothing ended the stream within the time limit. The refusal
// tests use it instead of gst-launch-1.0, whose own loop now and then misses its quit when two
// errors arrive while the pipeline prerolls and then waits forever.
#include <gst/gst.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    gst_init(&argc, &argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s PIPELINE-DESCRIPTION\n", argv[0]);
        return 3;
    }
    GError* parseError = nullptr;
    GstElement* pipeline = gst_parse_launch(argv[1], &parseError);
    if (!pipeline) {
        std::printf("ERROR: the pipeline does not parse: %s\n", parseError->message);
        g_error_free(parseError);
        return 1;
    }
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    int errors = 0;
    bool ended = false;
    // After the first error, the messages already posted are read too: an element that reports
    // one fault twice shows as two errors.
    for (GstClockTime wait = 60 * GST_SECOND;;) {
        GstMessage* m =
            gst_bus_timed_pop_filtered(bus, wait, GstMessageType(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        if (!m)
            break;
        if (GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR) {
            GError* e = nullptr;
            gst_message_parse_error(m, &e, nullptr);
            gchar* path = gst_object_get_path_string(GST_MESSAGE_SRC(m));
            std::printf("ERROR: from element %s: %s\n", path, e->message);
            g_free(path);
            g_error_free(e);
            ++errors;
        }
        ended = true;
        gst_message_unref(m);
        wait = 200 * GST_MSECOND;
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    std::fflush(stdout);
    return errors > 0 ? 1 : ended ? 0 : 2;
}
