#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfMatrixAttribute.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <ImfStringAttribute.h>

#include <exception>

#include "Failure.h"
#include "Picture.h"

namespace command {

void writeExr(const Picture& picture, const std::string& file, const std::string& shownName,
              int threads) {
  try {
    Imf::Header header(picture.width, picture.height);
    header.compression() = Imf::ZIP_COMPRESSION;

    // OpenEXR multiplies row vectors: its matrices have tarn's storage.
    Imath::M44f worldToCamera;
    for (int i = 0; i < 16; ++i) worldToCamera.x[i / 4][i % 4] = picture.worldToCamera[i];
    Imf::addWorldToCamera(header, worldToCamera);
    for (const auto& [name, text] : picture.texts) header.insert(name, Imf::StringAttribute(text));

    Imf::FrameBuffer buffer;
    for (const Plane& plane : picture.planes) {
      const Imf::PixelType type = plane.isInteger ? Imf::UINT : Imf::FLOAT;
      header.channels().insert(plane.name, Imf::Channel(type));
      const void* values =
          plane.isInteger ? static_cast<const void*>(plane.integers.data()) : plane.floats.data();
      // The frame buffer of a file that is written is only read.
      char* base = static_cast<char*>(const_cast<void*>(values));
      buffer.insert(plane.name,
                    Imf::Slice(type, base, sizeof(float),
                               sizeof(float) * static_cast<std::size_t>(picture.width)));
    }

    Imf::OutputFile output(file.c_str(), header, threads);
    output.setFrameBuffer(buffer);
    output.writePixels(picture.height);
  } catch (const std::exception& error) {
    throw Failure{kBadInput, "cannot write", shownName, error.what(),
                  "see whether the disk is full"};
  }
}

}  // namespace command
