#include "kovjson/valuetree.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

// A tape written from JSON gives the same JSON back, and the tree reads it as the JSON tree
// does: each container's children stay its own however deep containers nest and however many
// siblings follow them.
TEST(ValueTape, ReadsBackWhatWasWritten) {
  const char* const kDocs[] = {
      R"({})",
      R"([])",
      R"(7)",
      R"({"a": 1, "b": [2, -3, 0.5, true, null, "x"], "c": {"d": {}, "e": []}, "f": "y"})",
      R"([[1, [2, [3]], 4], {"k": [{"k": 5}, {"k": 6}]}, [], 18446744073709551615])",
      R"({"B": [{"L": [{"n": 1, "s": "CH0"}, {"n": 2, "s": "é"}]}, {"L": []}], "G": {"n": 3}})",
  };
  for (const char* text : kDocs) {
    SCOPED_TRACE(text);
    Json doc = Json::parse(text);
    KovValueTape tape;
    tape.AddJson(doc);
    EXPECT_EQ(tape.ToJson(tape.Root()).dump(), doc.dump());
    KovJsonValueTree json(doc);
    // Every node of both trees in step: type, size, members by name and in order, elements.
    std::vector<std::pair<KovValueNode, KovValueNode>> todo{{tape.Root(), json.Root()}};
    while (!todo.empty()) {
      auto [t, j] = todo.back();
      todo.pop_back();
      KovValueTree::Type type = json.TypeOf(j);
      ASSERT_EQ(tape.TypeOf(t), type);
      if (type == KovValueTree::Type::Unsigned) {
        EXPECT_EQ(tape.Unsigned(t), json.Unsigned(j));
      } else if (type == KovValueTree::Type::String) {
        EXPECT_EQ(tape.String(t), json.String(j));
      } else if (type == KovValueTree::Type::Object || type == KovValueTree::Type::Array) {
        EXPECT_EQ(tape.Size(t), json.Size(j));
      }
      KovValueIter ti, ji;
      std::string_view tk, jk;
      KovValueNode tv, jv;
      if (type == KovValueTree::Type::Object) {
        while (json.NextMember(j, ji, jk, jv)) {
          ASSERT_TRUE(tape.NextMember(t, ti, tk, tv));
          EXPECT_EQ(tk, jk);
          EXPECT_EQ(tape.Find(t, jk).i, tv.i);
          todo.emplace_back(tv, jv);
        }
        EXPECT_FALSE(tape.NextMember(t, ti, tk, tv));
        EXPECT_TRUE(tape.Find(t, "none").IsNull());
      }
      if (type == KovValueTree::Type::Array) {
        for (size_t i = 0; json.NextElement(j, ji, jv); ++i) {
          ASSERT_TRUE(tape.NextElement(t, ti, tv));
          EXPECT_EQ(tape.At(t, i).i, tv.i);
          todo.emplace_back(tv, jv);
        }
        EXPECT_FALSE(tape.NextElement(t, ti, tv));
      }
    }
  }
}

// A cleared tape starts afresh: no member name or value of the last use leaks into the next,
// and Other reads as a string in JSON but keeps its own type.
TEST(ValueTape, ClearForgetsEverything) {
  KovValueTape tape;
  tape.AddJson(Json::parse(R"({"old": [1, 2, 3], "x": "text"})"));
  tape.Clear();
  EXPECT_TRUE(tape.Root().IsNull());
  tape.BeginObject();
  tape.AddKey("x");
  tape.AddOther("1.50");
  tape.End();
  EXPECT_EQ(tape.KeyCount(), 1u);
  EXPECT_EQ(tape.ToJson(tape.Root()).dump(), R"({"x":"1.50"})");
  EXPECT_EQ(tape.TypeOf(tape.Find(tape.Root(), "x")), KovValueTree::Type::Other);
}

}  // namespace
