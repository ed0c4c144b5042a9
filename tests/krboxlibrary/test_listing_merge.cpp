#include "library_fixtures.h"

#include <krboxlibrary/folder_listing.h>

namespace {

using KR::FolderListing;

// "+|A|B" is an expanded listing of A then B, "-|A|B" a collapsed one; "" an empty file.
FolderListing listingOf(const QString& text) {
  QStringList parts = text.split('|');
  const bool expanded = parts.takeFirst() == "+";
  return FolderListing(parts, expanded);
}

QString textOf(const FolderListing& listing) {
  return (QStringList{listing.isExpanded() ? "+" : "-"} + listing.names()).join('|');
}

TEST(FolderListing, MergesWhatEachSideDidToOneFolder) {
  // What each row tries, then the base, ours, theirs and the merged listing.
  const char* const cases[][5] = {
      {"adds at one place, ours first", "-|A|B", "-|A|X|B", "-|A|Y|Z|B", "-|A|X|Y|Z|B"},
      {"adds at the front and the end", "-|A", "-|X|A|V", "-|Y|A|W", "-|X|Y|A|V|W"},
      {"a reorder beside an add", "-|A|B|C", "-|C|A|B", "-|A|B|C|D", "-|C|A|B|D"},
      {"a reorder beside a removal", "-|A|B|C|D", "-|A|C|D", "-|D|A|B|C", "-|D|A|C"},
      {"a rename beside a removal and an add", "-|A|B|C", "-|A|B2|C", "-|A|B|X", "-|A|B2|X"},
      {"one entry moved differently: ours wins", "-|A|B|C|D", "-|B|C|A|D", "-|B|A|C|D",
       "-|B|C|A|D"},
      {"different entries moved", "-|A|B|C|D", "-|B|C|D|A", "-|D|A|B|C", "-|D|B|C|A"},
      {"the same add on both sides", "-|A|B", "-|A|C|B", "-|C|A|B", "-|A|C|B"},
      {"their expanded state", "-|A", "-|A", "+|A", "+|A"},
      {"our expanded state", "+|A", "-|A", "+|A", "-|A"},
      {"no common listing", "-", "+|A|B", "-|A|C", "+|A|B|C"},
      {"repeats count once", "-|A|B|A", "-|B|A|B", "-|A|B|C", "-|B|A|C"},
      {"names in any script", "-|Tänze|Ω & <x>", "-|Ω & <x>|Tänze", "-|Tänze|Ω & <x>|日本",
       "-|Ω & <x>|Tänze|日本"},
  };
  for (const auto& c : cases) {
    const FolderListing merged =
        FolderListing::merge(listingOf(c[1]), listingOf(c[2]), listingOf(c[3]));
    EXPECT_EQ(textOf(merged), QString(c[4])) << c[0];
  }
}

TEST(FolderListing, ReadSaysWhyTextIsNoListing) {
  const std::pair<const char*, FolderListing::Error> cases[] = {
      {"\xEF\xBB\xBF<<<<<<< HEAD\r\n<Folder/>\r\n=======\r\n<Folder/>\r\n>>>>>>> b\r\n",
       FolderListing::ConflictMarkers},
      {"<Folder>\n<<<<<<< ours\n<Node name=\"A\"/>\n=======\n>>>>>>> theirs\n</Folder>",
       FolderListing::ConflictMarkers},
      {"<Folder><Node name=\"<<<<<<<\"", FolderListing::NotXml},
      {"<Library><Node name=\"A\"/></Library>", FolderListing::NotListing},
  };
  for (const auto& [text, error] : cases) {
    FolderListing listing(QStringList{"kept?"}, true);
    EXPECT_FALSE(listing.read(text)) << text;
    EXPECT_EQ(listing.error(), error) << text;
    EXPECT_TRUE(listing.names().isEmpty() && !listing.isExpanded()) << text;
  }
  FolderListing listing;
  listing.read(std::get<0>(cases[3]));
  EXPECT_EQ(listing.errorString(), "its root element is \"Library\", not \"Folder\"");
}

}  // namespace
