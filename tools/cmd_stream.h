// Output written a piece at a time, for the commands whose output grows with the image (dump,
// view): what they write never has to be held whole.
//
// KovToolStream gathers pieces and passes them on in blocks of about 1 MiB, to standard output
// or to a file written as kovToolWriteOutput writes one: into a temporary file beside the target,
// renamed over it by Close only once every byte is written, so a failure part-way leaves the
// file that was there before (the destructor of a stream not closed removes the temporary file).
// Write failures are KovToolError of status kKovToolRefused naming the path.
//
// kovToolJsonItem gives the text of one element of a JSON document that nlohmann's dump(1)
// would write at the given depth, so that a document can be written element by element with the
// same bytes as the whole tree dumped at once.
#ifndef KOV_TOOLS_CMD_STREAM_H
#define KOV_TOOLS_CMD_STREAM_H

#include <nlohmann/json.hpp>
#include <string>

class KovToolStream {
 public:
  // "-" is standard output. Throws KovToolError when the temporary file can't be made.
  explicit KovToolStream(const std::string& path);
  ~KovToolStream();
  KovToolStream(const KovToolStream&) = delete;
  KovToolStream& operator=(const KovToolStream&) = delete;

  KovToolStream& operator<<(const std::string& text) {
    buf += text;
    if (buf.size() >= kBlock) Flush();
    return *this;
  }
  // Writes what is left and puts the file in place.
  void Close();

 private:
  static constexpr size_t kBlock = 1 << 20;
  void Flush();
  std::string path;
  std::string tmp;  // the temporary file; "" for standard output
  int fd = -1;
  std::string buf;
};

// j as dump(1) writes it when it stands depth levels deep (one space a level).
std::string kovToolJsonItem(const nlohmann::ordered_json& j, int depth);

#endif  // KOV_TOOLS_CMD_STREAM_H
