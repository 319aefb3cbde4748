#include "zel/dnxhd/front_end/avid_compression.h"

#include "zel/runtime/video_format.h"

namespace Morvalen::Zel {

// Deliberate: 144 pairs "DVC 25 Progressive" with DVCPRO50, and the 1080p24 classes have the codes
// of 1080p30. Pinned by avid_compression_test.cpp, OddPairsStay.
// clang-format off
AvidCompression::Identifier const AvidCompression::identifiers[] = {
    // id, format, equivalentFormat, detail
    {75, VideoFormat::AvidMeridien, VideoFormat::JPEG, "10:1 Interlaced"},
    {76, VideoFormat::AvidMeridien, VideoFormat::JPEG, "2:1 Interlaced"},
    {77, VideoFormat::AvidMeridien, VideoFormat::JPEG, "3:1 Interlaced"},
    {78, VideoFormat::AvidMeridien, VideoFormat::JPEG, "15:1 Single Field"},
    {79, VideoFormat::AvidMeridien, VideoFormat::JPEG, "4:1 Single Field"},
    {80, VideoFormat::AvidMeridien, VideoFormat::JPEG, "2:1 Single Field"},
    {82, VideoFormat::AvidMeridien, VideoFormat::JPEG, "20:1 Interlaced"},
    {97, VideoFormat::AvidMeridien, VideoFormat::JPEG, "3:1 Progressive"},
    {98, VideoFormat::AvidMeridien, VideoFormat::JPEG, "2:1 Progressive"},
    {102, VideoFormat::AvidMeridien, VideoFormat::JPEG, "35:1 Progressive"},
    {103, VideoFormat::AvidMeridien, VideoFormat::JPEG, "14:1 Progressive"},
    {104, VideoFormat::AvidMeridien, VideoFormat::JPEG, "28:1 Progressive"},
    {140, VideoFormat::AvidDV, VideoFormat::DVCPRO25, "DVCPRO 25 Interlaced"},
    {141, VideoFormat::AvidDV, VideoFormat::DVC25, "DVC 25 Interlaced"},
    {142, VideoFormat::AvidDV, VideoFormat::DVCPRO50, "DVCPRO 50 Interlaced"},
    {143, VideoFormat::AvidDV, VideoFormat::DVCPRO25, "DVCPRO 25 Progressive"},
    {144, VideoFormat::AvidDV, VideoFormat::DVCPRO50, "DVC 25 Progressive"},
    {147, VideoFormat::AvidDV, VideoFormat::DVCPRO50, "DVCPRO 50 Progressive"},
    {160, VideoFormat::AvidIMX, VideoFormat::IMX50, "MPEG IMX 50"},
    {161, VideoFormat::AvidIMX, VideoFormat::IMX40, "MPEG IMX 40"},
    {162, VideoFormat::AvidIMX, VideoFormat::IMX30, "MPEG IMX 30"},
    {1235, VideoFormat::DNxHD, VideoFormat::DNxHD_10HQ, "HQ 10-bit 1080p"},
    {1237, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit 1080p"},
    {1238, VideoFormat::DNxHD, VideoFormat::DNxHD_8HQ, "HQ 8-bit 1080p"},
    {1241, VideoFormat::DNxHD, VideoFormat::DNxHD_10HQ, "HQ 10-bit 1080i"},
    {1242, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit 1080i"},
    {1243, VideoFormat::DNxHD, VideoFormat::DNxHD_8HQ, "HQ 8-bit 1080i"},
    {1244, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit TR 1080i"},
    {1250, VideoFormat::DNxHD, VideoFormat::DNxHD_10HQ, "HQ 10-bit 720p"},
    {1251, VideoFormat::DNxHD, VideoFormat::DNxHD_8HQ, "HQ 8-bit 720p"},
    {1252, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit 720p"},
    {1253, VideoFormat::DNxHD, VideoFormat::DNxHD_8LQ, "LQ 8-bit 1080p"},
    {1256, VideoFormat::DNxHD, VideoFormat::DNxHD_10HQ, "HQ 10-bit 4:4:4 1080p"},
    {1258, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit TR 720p"},
    {1259, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit TR 1080p"},
    {1260, VideoFormat::DNxHD, VideoFormat::DNxHD_8SQ, "SQ 8-bit TR 1080i"},
    {2400, VideoFormat::AvidDV100, VideoFormat::DVCPROHD_1080i50, "1080i50"},
    {2401, VideoFormat::AvidDV100, VideoFormat::DVCPROHD_1080i60, "1080i60"},
    {2402, VideoFormat::AvidDV100, VideoFormat::DVCPROHD_720p60, "720p24/30/60"},
    {2403, VideoFormat::AvidDV100, VideoFormat::DVCPROHD_720p50, "720p25/50"},
    {3400, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_720p50, "Class 50 720p50"},
    {3401, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_720p60, "Class 50 720p30"},
    {3402, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_720p50, "Class 50 720p25"},
    {3403, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_720p60, "Class 50 720p24"},
    {3404, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_720p60, "Class 50 720p60"},
    {3405, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_1080i60, "Class 50 1080i60"},
    {3406, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_1080i50, "Class 50 1080i50"},
    {3407, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_1080p25, "Class 50 1080p25"},
    {3408, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_1080p30, "Class 50 1080p30"},
    {3409, VideoFormat::AvidAVCI, VideoFormat::AVCIntra50_1080p30, "Class 50 1080p24"},
    {3410, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_720p50, "Class 100 720p50"},
    {3411, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_720p60, "Class 100 720p30"},
    {3412, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_720p50, "Class 100 720p25"},
    {3413, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_720p60, "Class 100 720p24"},
    {3414, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_720p60, "Class 100 720p60"},
    {3415, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_1080i60, "Class 100 1080i60"},
    {3416, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_1080i50, "Class 100 1080i50"},
    {3417, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_1080p25, "Class 100 1080p25"},
    {3418, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_1080p30, "Class 100 1080p30"},
    {3419, VideoFormat::AvidAVCI, VideoFormat::AVCIntra100_1080p30, "Class 100 1080p24"},
    {3427, VideoFormat::AvidXAVC, VideoFormat::AVCIntraVBR, "1080p24"},
    {0, 0, 0, nullptr}};
// clang-format on

namespace {

// The row of the id, or the last one, which gives what an unknown id gives.
AvidCompression::Identifier const& Find(unsigned int id) {
  AvidCompression::Identifier const* row = AvidCompression::identifiers;
  while (row->id != 0 && row->id != id) ++row;
  return *row;
}

}  // namespace

unsigned int AvidCompression::GetFormat(unsigned int id) {
  return Find(id).format;
}

unsigned int AvidCompression::GetEquivalentFormat(unsigned int id) {
  return Find(id).equivalentFormat;
}

char const* AvidCompression::GetDetail(unsigned int id) {
  return Find(id).detail;
}

}  // namespace Morvalen::Zel
