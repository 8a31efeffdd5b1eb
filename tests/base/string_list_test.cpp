/// \file NuvStringList: growth, duplicates, search and removal by text, iteration, indexing,
/// sorting by 16-bit units, its assertions, and the references and blocks it gives back.
#include <nuv/string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fatal_report.h"
#include "support/private_pool.h"
#include "support/wide_text.h"

namespace {

using nuv::test::ExpectLibraryAssertion;
using nuv::test::InUse;
using nuv::test::RunToFatalReport;
using nuv::test::Wide;

constexpr unsigned kSlotBytes = sizeof(NuvString*);  // NOLINT(bugprone-sizeof-expression): a slot

class StringList : public nuv::test::PrivatePoolTest {
 protected:
  ref<NuvString> Text(const char* text) const { return new (Pool()) NuvString(text); }
  ref<NuvString> WideText(std::u16string_view text) const {
    const std::vector<unsigned short> units = Wide(text);
    return new (Pool()) NuvString(static_cast<const unsigned short*>(units.data()));
  }
  ref<NuvStringList> List(const std::vector<const char*>& texts) const {
    ref<NuvStringList> list = new (Pool()) NuvStringList();
    for (const char* text : texts) {
      list->Add(Text(text).get());
    }
    return list;
  }
};

std::vector<std::string> Texts(NuvStringList& list) {
  std::vector<std::string> texts;
  texts.reserve(static_cast<size_t>(list.Length()));
  for (int i = 0; i < list.Length(); ++i) {
    texts.emplace_back(list.Index(i)->Utf8());
  }
  return texts;
}

TEST_F(StringList, NewListIsEmptyWithTenSlots) {
  const unsigned before = NuvBytes();
  const ref<NuvStringList> list = new (Pool()) NuvStringList();
  EXPECT_EQ(list->Length(), 0);
  EXPECT_EQ(NuvBytes() - before, sizeof(NuvStringList) + 10 * kSlotBytes);
}

TEST_F(StringList, AddKeepsOrderAndDuplicatesAndTakesOneReference) {
  const ref<NuvStringList> list = List({"b", "a"});
  const ref<NuvString> a = Text("a");
  list->Add(a.get());
  list->Add(a.get());
  EXPECT_EQ(list->Length(), 4);
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"b", "a", "a", "a"}));
  EXPECT_EQ(a->GetRefCount(), 3U);
}

TEST_F(StringList, SlotsDoubleWhenTheEleventhAndTheTwentyFirstElementsArrive) {
  // The strings live in a pool of their own, so that this pool's "nuv" bytes are the list's.
  NuvMempool* strings = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("strings", kPoolSize, false, nullptr, false, strings), kNuvOk);
  {
    const ref<NuvString> s = new (strings) NuvString("s");
    const ref<NuvStringList> list = new (Pool()) NuvStringList();
    const unsigned tenSlots = NuvBytes();
    std::vector<unsigned> growth;
    for (int i = 1; i <= 21; ++i) {
      list->Add(s.get());
      growth.push_back(NuvBytes() - tenSlots);
    }
    std::vector<unsigned> expected(21, 0);
    for (int i = 10; i < 20; ++i) {
      expected[i] = 10 * kSlotBytes;
    }
    expected[20] = 30 * kSlotBytes;
    EXPECT_EQ(growth, expected);
    EXPECT_EQ(list->Length(), 21);
    EXPECT_EQ(s->GetRefCount(), 22U);
  }
  delete strings;
}

TEST_F(StringList, ElementsKeepTheirOrderAcrossGrowth) {
  std::vector<std::string> texts;
  const ref<NuvStringList> list = new (Pool()) NuvStringList();
  for (int i = 0; i < 25; ++i) {
    texts.push_back(std::to_string(i));
    list->Add(Text(texts.back().c_str()).get());
  }
  EXPECT_EQ(Texts(*list), texts);
}

TEST_F(StringList, ContainsComparesTextWhateverTheForms) {
  const ref<NuvStringList> list = List({"x", "\xc3\xa9t\xc3\xa9"});
  EXPECT_TRUE(list->FContains(Text("x").get()));
  EXPECT_TRUE(list->FContains(WideText(u"\u00e9t\u00e9").get()));
  EXPECT_FALSE(list->FContains(Text("X").get()));
  EXPECT_FALSE(List({})->FContains(Text("x").get()));
}

TEST_F(StringList, RemoveSkipsTheElementThatSlidIntoTheFreedIndex) {
  const ref<NuvStringList> list = List({"a", "a", "b"});
  const ref<NuvString> a = Text("a");
  list->Remove(a.get());
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"a", "b"}));
  list->Remove(a.get());
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"b"}));
}

TEST_F(StringList, RemoveTakesEveryEqualElementThatIsNotANeighbour) {
  const ref<NuvStringList> list = List({"a", "b", "a", "c", "a"});
  list->Remove(Text("a").get());
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"b", "c"}));
}

TEST_F(StringList, RemoveOfAnAbsentTextChangesNothing) {
  const ref<NuvStringList> list = List({"a", "b"});
  list->Remove(Text("c").get());
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"a", "b"}));
}

TEST_F(StringList, RemoveDropsTheReferenceOfEachRemovedElement) {
  const ref<NuvString> a = Text("a");
  const ref<NuvStringList> list = List({"b"});
  list->Add(a.get());
  list->Add(a.get());
  list->Add(Text("b").get());
  EXPECT_EQ(a->GetRefCount(), 3U);
  list->Remove(a.get());
  EXPECT_EQ(a->GetRefCount(), 2U);
  list->Remove(a.get());
  EXPECT_EQ(a->GetRefCount(), 1U);
}

TEST_F(StringList, RemovingTheListsOnlyReferenceStillComparesAgainstItsText) {
  const ref<NuvStringList> list = List({"a", "b", "a"});
  NuvString* first = list->Index(0).get();
  list->Remove(first);
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"b"}));
}

TEST_F(StringList, RemoveByAStringThatNothingCountsLeavesItAlive) {
  const ref<NuvStringList> list = List({"a", "b"});
  auto* loose = new (Pool()) NuvString("a");
  list->Remove(loose);
  EXPECT_EQ(loose->GetRefCount(), 0U);
  EXPECT_STREQ(loose->Utf8(), "a");
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"b"}));
  loose->DeleteThis();
}

TEST_F(StringList, RemovingAStringHeldTwiceOnlyByTheListReleasesIt) {
  {
    const ref<NuvStringList> list = new (Pool()) NuvStringList();
    auto* twice = new (Pool()) NuvString("t");
    list->Add(twice);
    list->Add(new (Pool()) NuvString("u"));
    list->Add(twice);
    list->Remove(twice);
    EXPECT_EQ(Texts(*list), (std::vector<std::string>{"u"}));
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(StringList, RemoveLeavesTheCursorWhereItWas) {
  const ref<NuvStringList> list = List({"a", "b", "c"});
  list->Start();
  list->Next();
  list->Remove(Text("a").get());
  EXPECT_STREQ(list->Current()->Utf8(), "c");
}

TEST_F(StringList, IterationVisitsEveryElementInOrder) {
  const ref<NuvStringList> list = List({"x", "y", "z"});
  std::vector<std::string> seen;
  for (list->Start(); list->FCurrent(); list->Next()) {
    seen.emplace_back(list->Current()->Utf8());
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"x", "y", "z"}));
}

TEST_F(StringList, StartingAnEmptyListFindsNoCurrentElement) {
  const ref<NuvStringList> list = List({});
  list->Start();
  EXPECT_FALSE(list->FCurrent());
}

TEST_F(StringList, CurrentAndIndexHandOutANewReference) {
  const ref<NuvString> a = Text("a");
  const ref<NuvStringList> list = new (Pool()) NuvStringList();
  list->Add(a.get());
  list->Start();
  {
    const ref<NuvString> current = list->Current();
    const ref<NuvString> indexed = list->Index(0);
    EXPECT_EQ(current, a);
    EXPECT_EQ(indexed, a);
    EXPECT_EQ(a->GetRefCount(), 4U);
  }
  EXPECT_EQ(a->GetRefCount(), 2U);
}

TEST_F(StringList, SortOrdersBySixteenBitUnits) {
  const ref<NuvStringList> list = List({"b", "\xe2\x82\xac", "ab", "Z", "\xc3\xa9", "a", "b"});
  list->Add(WideText(u"\uff21").get());
  list->Sort();
  EXPECT_EQ(Texts(*list), (std::vector<std::string>{"Z", "a", "ab", "b", "b", "\xc3\xa9",
                                                    "\xe2\x82\xac", "\xef\xbc\xa1"}));
}

TEST_F(StringList, SortOfAnEmptyListDoesNothing) {
  const ref<NuvStringList> list = List({});
  list->Sort();
  EXPECT_EQ(list->Length(), 0);
}

TEST_F(StringList, DestroyingAFilledListGivesBackEveryReferenceAndBlock) {
  {
    const ref<NuvString> shared = Text("shared");
    const ref<NuvStringList> list = List({"a", "b", "a"});
    for (int i = 0; i < 25; ++i) {
      list->Add(shared.get());
    }
    list->Add(WideText(u"w").get());
    list->Sort();
    EXPECT_TRUE(list->FContains(shared.get()));
    EXPECT_EQ(shared->GetRefCount(), 26U);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(StringList, EmptyingAListByRemovalGivesBackEveryElement) {
  const ref<NuvStringList> list = new (Pool()) NuvStringList();
  const std::vector<unsigned> emptyList = InUse(Pool());
  {
    const ref<NuvString> x = Text("x");
    for (int i = 0; i < 5; ++i) {
      list->Add(Text("y").get());
      list->Add(x.get());
    }
    list->Remove(x.get());
    EXPECT_EQ(list->Length(), 5);
    const ref<NuvString> y = Text("y");
    // Five neighbours: each call removes every other one.
    std::vector<int> lengths;
    while (list->FContains(y.get())) {
      list->Remove(y.get());
      lengths.push_back(list->Length());
    }
    EXPECT_EQ(lengths, (std::vector<int>{2, 1, 0}));
  }
  EXPECT_EQ(InUse(Pool()), emptyList);
}

TEST_F(StringList, AddingNullFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] { List({})->Add(nullptr); }), "Add", 130);
}

TEST_F(StringList, NextAtTheEndFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvStringList> list = List({"a"});
                           list->Start();
                           list->Next();
                           list->Next();
                         }),
                         "Next", 131);
}

TEST_F(StringList, CurrentBeforeStartFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] { List({"a"})->Current(); }), "Current", 132);
}

TEST_F(StringList, CurrentAtTheEndFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvStringList> list = List({"a"});
                           list->Start();
                           list->Next();
                           list->Current();
                         }),
                         "Current", 132);
}

TEST_F(StringList, IndexOutsideTheListFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] { List({"a"})->Index(1); }), "Index", 133);
  ExpectLibraryAssertion(RunToFatalReport([&] { List({"a"})->Index(-1); }), "Index", 133);
}

}  // namespace
