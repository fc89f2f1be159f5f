// Packs and unpacks of different images on several threads over one shared layout, while other
// threads load and drop layouts (registering string resources and callback rules) and swap the
// message-box handler. Run under ThreadSanitizer by `make test-tsan`; a data race in the library
// or the declarative layer fails that run, a wrong image or value fails this test anywhere.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

// A layout of its own for the loading thread: a calculated list and a union, so that loading it
// files callback rules beside the radio's.
const char* const kOtherLayout = R"({"partitions": [{"number": 1, "blocks": [
  {"name": "T", "kovType": "0x0701", "maxDataSize": 8, "fields": [
    {"name": "n", "type": "number", "bits": 8, "byteOffset": 0},
    {"name": "L", "type": "list", "format": "calculated", "byteOffset": 1, "maxEntries": 4,
     "entryBits": 8, "quantity": {"constant": 2},
     "entry": [{"name": "k", "type": "number", "bits": 8, "byteOffset": 0}]}]}]}]})";

void quietHandler(const std::string&) {}

TEST(Threads, PackAndUnpackDifferentImagesOverOneLayout) {
  auto layout = CKovJsonLayout::LoadFile(KOV_RADIO_DIR "/layout.json", false);
  Json base = kovJsonParse(kovJsonReadFile(KOV_RADIO_DIR "/values.json"), "values.json");

  // Eight images that differ in a number and in the length of a distributed list.
  std::vector<Json> values;
  std::vector<Bytes> images;
  for (int i = 0; i < 8; ++i) {
    Json v = base;
    v["General"]["Volume"] = static_cast<unsigned>(i);
    Json& contacts = v["Contacts"]["Contact list"];
    contacts.erase(contacts.begin() + 2 + i, contacts.end());
    values.push_back(v);
    images.push_back(kovJsonPackImage(*layout, *kovJsonPackData(*layout, v, "v.json"), false, ""));
  }

  std::atomic<bool> done{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t) {
    workers.emplace_back([&, t] {
      for (int n = 0; n < 30; ++n) {
        size_t i = static_cast<size_t>(t + n) % images.size();
        try {
          Bytes image =
              kovJsonPackImage(*layout, *kovJsonPackData(*layout, values[i], "v.json"), false, "");
          CKovUp up(layout->GetCpLayout(), images[i], "");
          up.FullUnpack();
          if (image != images[i] || kovJsonUnpackedValues(*layout, up) != values[i]) ++wrong;
        } catch (CMevGenException* e) {
          delete e;
          ++wrong;
        }
      }
    });
  }
  std::thread loader([&] {
    while (!done) {
      auto other = CKovJsonLayout::Load(kOtherLayout, "other.json", false);
      KovMessageBoxHandler previous = kovSetMessageBoxHandler(quietHandler);
      kovSetMessageBoxHandler(previous);
    }
  });
  for (std::thread& w : workers) w.join();
  done = true;
  loader.join();
  EXPECT_EQ(wrong, 0);
}

// Each thread keeps the names it looked up: a name registered again on another thread must
// still reach it on its next look-up.
TEST(Threads, NameRegisteredOnOneThreadReachesAnother) {
  kovRegisterString(900101, "Before");
  std::promise<void> registered;
  std::promise<std::string> first;
  std::string second;
  std::thread reader([&] {
    first.set_value(kovLoadString(900101));
    registered.get_future().wait();
    second = kovLoadString(900101);
  });
  EXPECT_EQ(first.get_future().get(), "Before");
  kovRegisterString(900101, "After");
  registered.set_value();
  reader.join();
  EXPECT_EQ(second, "After");
  kovClearRegisteredStrings();
}

}  // namespace
