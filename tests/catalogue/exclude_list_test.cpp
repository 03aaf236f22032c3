#include "catalogue/exclude_list.h"

#include <gtest/gtest.h>

#include <vector>

namespace kel {
namespace {

std::vector<WString> Names(const ExcludeAppNameList& list) { return {list.begin(), list.end()}; }

TEST(ExcludeList, KeepsInsertionOrder) {
  ExcludeAppNameList list;
  EXPECT_EQ(list.AddUnique(u"zebra"), S_OK);
  EXPECT_EQ(list.AddUnique(u"apple"), S_OK);
  EXPECT_EQ(list.AddUnique(u"mango"), S_OK);
  EXPECT_EQ(Names(list), (std::vector<WString>{u"zebra", u"apple", u"mango"}));
}

TEST(ExcludeList, RepeatInOtherAsciiCaseIsRefusedAndFirstSpellingKept) {
  ExcludeAppNameList list;
  EXPECT_EQ(list.AddUnique(u"Photo Viewer"), S_OK);
  EXPECT_EQ(list.AddUnique(u"PHOTO viewer"), S_FALSE);
  EXPECT_EQ(list.size(), 1u);
  EXPECT_EQ(*list.begin(), u"Photo Viewer");
}

TEST(ExcludeList, CaseFoldingIsAsciiOnly) {
  ExcludeAppNameList list;
  EXPECT_EQ(list.AddUnique(u"\u00C9t\u00E9"), S_OK);
  EXPECT_EQ(list.AddUnique(u"\u00E9t\u00E9"), S_OK);  // E acute is not folded
  EXPECT_EQ(list.AddUnique(u"\uFF21"), S_OK);         // nor full-width A
  EXPECT_EQ(list.AddUnique(u"\uFF41"), S_OK);
  EXPECT_EQ(list.size(), 4u);
}

TEST(ExcludeList, NamesCompareUpToTheirFirstNul) {
  ExcludeAppNameList list;
  EXPECT_EQ(list.AddUnique(WString(u"mail\0box", 8)), S_OK);
  EXPECT_EQ(list.AddUnique(u"MAIL"), S_FALSE);
}

TEST(ExcludeList, EmptyNameIsListedOnce) {
  ExcludeAppNameList list;
  EXPECT_EQ(list.AddUnique(u""), S_OK);
  EXPECT_EQ(list.AddUnique(u""), S_FALSE);
  EXPECT_EQ(list.size(), 1u);
}

TEST(ExcludeList, ThousandsOfNamesStayUniqueAndOrdered) {
  ExcludeAppNameList list;
  for (int i = 0; i < 5000; ++i) {
    WString name = u"App ";
    for (int n = i; n > 0; n /= 10) name.insert(name.begin() + 4, static_cast<char16_t>(u'0' + n % 10));
    ASSERT_EQ(list.AddUnique(name), S_OK);
    for (char16_t& c : name) c = (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
    ASSERT_EQ(list.AddUnique(name), S_FALSE);
  }
  EXPECT_EQ(list.size(), 5000u);
  EXPECT_EQ(*list.begin(), u"App ");
  EXPECT_EQ(*std::next(list.begin(), 1234), u"App 1234");
}

TEST(ExcludeList, ListsBuiltAlikeCompareEqual) {
  ExcludeAppNameList a{u"one", u"two"};
  ExcludeAppNameList b;
  (void)b.AddUnique(u"one");
  (void)b.AddUnique(u"TWO");
  EXPECT_FALSE(a == b);  // the spelling kept is the first one given
  b = ExcludeAppNameList{u"one", u"two", u"ONE"};
  EXPECT_TRUE(a == b);
}

}  // namespace
}  // namespace kel

namespace kel {
namespace {

TEST(ExcludeList, CopyAndMovedListKeepTellingRepeats) {
  ExcludeAppNameList original{u"one", u"two"};
  ExcludeAppNameList copy(original);
  EXPECT_EQ(copy.AddUnique(u"ONE"), S_FALSE);
  EXPECT_EQ(copy.AddUnique(u"three"), S_OK);
  EXPECT_EQ(original.size(), 2u);  // the copy's names are its own
  ExcludeAppNameList moved(std::move(copy));
  EXPECT_EQ(moved.AddUnique(u"Three"), S_FALSE);
  EXPECT_EQ(moved.AddUnique(u"four"), S_OK);
  original = moved;
  EXPECT_EQ(original.AddUnique(u"FOUR"), S_FALSE);
  EXPECT_EQ(original.size(), 4u);
}

}  // namespace
}  // namespace kel

#include "catalogue/records.h"

namespace kel {
namespace {

TEST(ExcludeList, ARecordsNameIsListedWhereTheRecordKeepsItAndOutlivesTheCatalogueReference) {
  RecordRef<CKELMetroApp> app = CKELMetroApp::Create(u"Mail Box", u"Mail", nullptr, nullptr);
  ExcludeAppNameList list;
  ASSERT_EQ(list.AddUnique(*app, app->DisplayName()), S_OK);
  EXPECT_EQ(list.AddUnique(u"MAIL BOX"), S_FALSE);
  EXPECT_EQ(list.AddUnique(*app, app->DisplayName()), S_FALSE);
  EXPECT_EQ((*list.begin()).data(), app->DisplayName().data());  // no copy
  const char16_t* where = app->DisplayName().data();
  app.reset();  // the list's reference keeps the record
  ExcludeAppNameList copy(list);
  list = ExcludeAppNameList{};
  ASSERT_EQ(copy.size(), 1u);
  EXPECT_EQ((*copy.begin()).data(), where);
  EXPECT_EQ(*copy.begin(), u"mail box");
}

}  // namespace
}  // namespace kel
