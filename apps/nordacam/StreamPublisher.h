#pragma once
// StreamPublisher: the frames the chain hands to network clients.
//
// The socket server elements of the chain call it once per frame; it encodes the display image as
// JPEG and the radiometric frame as PXM (with its metadata) and publishes them to a FrameHub each,
// from which every client of that stream takes the newest. A stream's element runs only while
// someone reads its hub (the demand callbacks start and stop it through its commands). Every JPEG
// the host serves goes through encodeJpeg, so all streams and snapshots look alike.

#include "apps/nordacam/FrameHub.h"

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/datatypes/Frame.h"

#include <opencv2/core.hpp>

#include <string>

namespace nordacam {

// Callable names of the socket server elements of the two streams.
inline const std::string kMjpegStreamName = "DisplayStream";
inline const std::string kPxmStreamName = "RadiometricStream";

class StreamPublisher {
public:
    explicit StreamPublisher(norda::exp::cmd::CommandProxy& commands) : m_commands(commands) {}

    // Starts each stream's element with its first reader, stops it after its last.
    void startOnDemand();
    // The display image (CV_8UC3, R G B) as JPEG to the display stream's readers.
    void publishDisplay(const norda::exp::Frame& frame);
    // The radiometric frame with its metadata as PXM to the radiometric stream's readers.
    void publishRadiometric(const norda::exp::Frame& frame);
    // Wakes and ends every reader.
    void close();

    FrameHub& displayHub() { return m_display; }
    FrameHub& radiometricHub() { return m_radiometric; }

    // An R G B image (CV_8UC3) as JPEG.
    static std::string encodeJpeg(const cv::Mat& rgb, int quality = 85);

private:
    norda::exp::cmd::CommandProxy& m_commands;
    FrameHub m_display;
    FrameHub m_radiometric;
};

} // namespace nordacam
