// What the C++ side sees in a PXM file, for the Python module's tests to compare with.
//
//   nordapy_pxm_reference decode FILE OUT   every frame ImageDecoderPxM delivers: OUT/<i>.raw (the
//                                           pixels row by row, native byte order) and OUT/<i>.txt
//                                           ("rows cols type", then "key tag text" per metadata entry)
//   nordapy_pxm_reference play FILE N OUT   N cycles of FileReaderElement: OUT/play<i>.raw and
//                                           OUT/play<i>.txt ("rows cols type", "FrameCnt <n>")
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
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
        std::cerr << "usage: nordapy_pxm_reference decode FILE OUT | play FILE N OUT\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "nordapy_pxm_reference: " << e.what() << "\n";
        return 1;
    }
}
