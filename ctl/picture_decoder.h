// Makes a picture file of one H.264 picture with what is installed: ffmpeg, or else GStreamer.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ctl {

enum class PictureKind : std::uint8_t { jpeg, png };

// Decodes the byte stream of one picture into the file, which is there whole or as it was before. Returns
// done, not_installed, or unusable, and has then said why.
int write_picture(std::span<const std::uint8_t> stream, PictureKind kind, const std::string& path);

}  // namespace ctl
