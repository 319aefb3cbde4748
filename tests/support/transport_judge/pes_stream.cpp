#include "tests/support/transport_judge/pes_stream.h"

#include <string>

namespace zel::test {
namespace {

using Bytes = std::span<const uint8_t>;

// 2.4.3.7; negative where the marker bits are wrong.
int64_t readStamp(Bytes at) {
  if ((at[0] & 1) == 0 || (at[2] & 1) == 0 || (at[4] & 1) == 0) return -1;
  return static_cast<int64_t>(at[0] >> 1 & 7) << 30 | static_cast<int64_t>(at[1]) << 22 |
         static_cast<int64_t>(at[2] >> 1) << 15 | at[3] << 7 | at[4] >> 1;
}

class PesReader {
 public:
  PesReader(int pid, Findings& findings) : pid_(pid), findings_(findings) {}

  void packet(const TsPacket& packet) {
    Delivery delivery;
    delivery.packet = packet.index;
    if (packet.hasPayload) {
      if (packet.unitStart)
        start(packet, delivery);
      else if (inPes_)
        take(packet.payload);
      if (inPes_) delivery.payload = static_cast<int>(packet.payload.size());
    }
    out.deliveries.push_back(delivery);
  }
  void end() { checkLength(lastPacket_); }

  PesStream out;

 private:
  void fault(int64_t packet, const std::string& text) {
    findings_.add({Fault::kPesSyntax, 0, packet, pid_, 0, text});
  }

  void take(Bytes bytes) {
    taken_ += bytes.size();
    out.data.insert(out.data.end(), bytes.begin(), bytes.end());
  }

  void checkLength(int64_t packet) {
    if (inPes_ && stated_ != 0 && taken_ != stated_)
      fault(packet, "PES_packet_length is " + std::to_string(stated_) + ", there are " +
                        std::to_string(taken_));
  }

  void start(const TsPacket& packet, Delivery& delivery) {
    checkLength(packet.index);
    lastPacket_ = packet.index;
    inPes_ = false;
    const Bytes pes = packet.payload;
    if (pes.size() < 9 || pes[0] != 0 || pes[1] != 0 || pes[2] != 1)
      return fault(packet.index, "no PES header where one should begin");
    const size_t header = 9U + pes[8];
    if ((pes[6] & 0xC0) != 0x80 || header > pes.size()) return fault(packet.index, "PES header");
    stated_ = static_cast<size_t>(pes[4] << 8 | pes[5]);
    PesPacket each{static_cast<int64_t>(out.data.size()), packet.index, -1, -1};
    const unsigned flags = pes[7] >> 6;
    if (flags == 1 || (flags >= 2 && pes[8] < (flags == 3 ? 10 : 5))) {
      fault(packet.index, "PTS_DTS_flags");
    } else if (flags >= 2) {
      each.pts = readStamp(pes.subspan(9));
      each.dts = flags == 3 ? readStamp(pes.subspan(14)) : each.pts;
      if (each.pts < 0 || each.dts < 0 || pes[9] >> 4 != flags || (flags == 3 && pes[14] >> 4 != 1))
        fault(packet.index, "marker bits of a time stamp");
    }
    out.packets.push_back(each);
    inPes_ = true;
    delivery.headerSize = static_cast<int>(header);
    take(pes.subspan(header));
    taken_ = pes.size() - 6;
  }

  int pid_;
  Findings& findings_;
  bool inPes_ = false;
  size_t stated_ = 0;
  size_t taken_ = 0;
  int64_t lastPacket_ = 0;
};

}  // namespace

PesStream readPesStream(const std::vector<TsPacket>& packets, int pid, Findings& findings) {
  PesReader reader(pid, findings);
  for (const TsPacket& packet : packets)
    if (packet.pid == pid) reader.packet(packet);
  reader.end();
  return std::move(reader.out);
}

}  // namespace zel::test
