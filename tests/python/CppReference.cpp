// What the C++ side sees and writes, for the Python module's tests to compare with.
//
//   nordapy_reference decode FILE OUT   every frame ImageDecoderPxM delivers from a PXM file:
//                                       OUT/<i>.raw (the pixels row by row, native byte order) and
//                                       OUT/<i>.txt ("rows cols type", then "key tag text" per
//                                       metadata entry)
//   nordapy_reference play FILE N OUT   N cycles of FileReaderElement: OUT/play<i>.raw and .txt
//   nordapy_reference visual OUT        a radiometric image whose visual image (YUV 4:2:2) has a
//                                       white, a black and a red pixel pair, then grey
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/streaming/FileReaderElement.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

void dump(const cv::Mat& image, const norda::exp::DataStorage<std::string>& meta, const std::string& stem) {
    const cv::Mat m = image.isContinuous() ? image : image.clone();
    std::ofstream(stem + ".raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(m.data), std::streamsize(m.total() * m.elemSize()));
    std::ofstream text(stem + ".txt");
    text << m.rows << " " << m.cols << " " << m.type() << "\n";
    for (const auto& [key, value] : meta)
        text << key << " " << value->typeTag() << " " << value->toString() << "\n";
}

} // namespace

int main(int argc, char** argv) {
    try {
        const std::string mode = argc > 1 ? argv[1] : "";
        if (mode == "decode" && argc == 4) {
            norda::vision::ImageDecoderPxM decoder;
            if (!decoder.open(argv[2]))
                throw std::runtime_error(std::string("can not open ") + argv[2]);
            cv::Mat frame;
            for (int i = 0; decoder.grab(frame, nullptr); ++i)
                dump(frame, decoder.getMetaData(), std::string(argv[3]) + "/" + std::to_string(i));
            return 0;
        }
        if (mode == "play" && argc == 5) {
            norda::exp::streaming::FileReaderElement reader(argv[2]);
            norda::exp::streaming::FrameMap inputs, outputs;
            for (int i = 0; i < std::stoi(argv[3]); ++i) {
                reader.process(inputs, outputs);
                const auto& frame = *outputs.at(norda::exp::streaming::STREAMING_DATATYPE_RAW);
                dump(frame.getFrameData(), frame.getMetaData(),
                     std::string(argv[4]) + "/play" + std::to_string(i));
            }
            return 0;
        }
        if (mode == "visual" && argc == 3) {
            norda::vision::Rix rix;
            rix.setRadiometricImage(cv::Mat_<uint16_t>(2, 8, uint16_t(29315)));
            cv::Mat_<cv::Vec2b> uyvy(2, 8, cv::Vec2b(128, 126));
            const uint8_t pairs[3][4] = {{128, 235, 128, 235}, {128, 16, 128, 16}, {90, 81, 240, 81}};
            for (int p = 0; p < 3; ++p)
                for (int i = 0; i < 4; ++i)
                    uyvy(0, 2 * p + i / 2)[i % 2] = pairs[p][i];
            rix.setVisualImageYuv2(uyvy, 0.5f, true);
            rix.save(argv[2], false);
            return 0;
        }
        std::cerr << "usage: nordapy_reference decode FILE OUT | play FILE N OUT | visual OUT\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "nordapy_reference: " << e.what() << "\n";
        return 1;
    }
}
