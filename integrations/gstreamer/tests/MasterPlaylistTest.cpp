// Master playlists as packagers write them, and the URL handling the variant
// lookup depends on.

#include <gtest/gtest.h>

#include "MasterPlaylist.h"

namespace tav::gstreamer {
namespace {

TEST(MasterPlaylist, ReadsVariantsWithQuotedAttributesAndResolvesTheirUrls) {
  const std::string text =
      "\xEF\xBB\xBF#EXTM3U\r\n"
      "#EXT-X-VERSION:6\r\n"
      "#EXT-X-INDEPENDENT-SEGMENTS\r\n"
      "#EXT-X-STREAM-INF:CODECS=\"avc1.640028,mp4a.40.2\",BANDWIDTH=5000000,"
      "RESOLUTION=1920x1080,FRAME-RATE=29.970\r\n"
      "hd/index.m3u8?token=a,b\r\n"
      "\r\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=800000,AVERAGE-BANDWIDTH=700000,RESOLUTION=640x360\r\n"
      "../sd/index.m3u8\r\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=64000,CODECS=\"mp4a.40.2\"\r\n"
      "https://cdn.test/audio/index.m3u8\r\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=bad,RESOLUTION=1280\r\n"
      "/abs/index.m3u8\r\n";
  const auto variants =
      parseMasterPlaylist(text, "http://media.test:8000/shows/ep1/master.m3u8?x=1");
  ASSERT_EQ(variants.size(), 4U);

  EXPECT_EQ(variants[0].uri, "http://media.test:8000/shows/ep1/hd/index.m3u8?token=a,b");
  EXPECT_EQ(variants[0].bandwidth, 5000000);
  EXPECT_EQ(variants[0].width, 1920);
  EXPECT_EQ(variants[0].height, 1080);
  ASSERT_TRUE(variants[0].frameRate);
  EXPECT_DOUBLE_EQ(*variants[0].frameRate, 29.97);

  EXPECT_EQ(variants[1].uri, "http://media.test:8000/shows/sd/index.m3u8");
  EXPECT_EQ(variants[1].bandwidth, 800000) << "BANDWIDTH, not AVERAGE-BANDWIDTH";
  EXPECT_EQ(variants[1].height, 360);

  EXPECT_EQ(variants[2].uri, "https://cdn.test/audio/index.m3u8");
  EXPECT_FALSE(variants[2].width) << "an audio-only variant has no size";

  EXPECT_EQ(variants[3].uri, "http://media.test:8000/abs/index.m3u8");
  EXPECT_EQ(variants[3].bandwidth, 0) << "a malformed number is skipped";
  EXPECT_FALSE(variants[3].width);
}

TEST(MasterPlaylist, AnswersNothingForMediaPlaylistsAndOtherText) {
  EXPECT_TRUE(parseMasterPlaylist("#EXTM3U\n#EXTINF:2.0,\nseg0.ts\n#EXT-X-ENDLIST\n",
                                  "http://h/x/index.m3u8")
                  .empty());
  EXPECT_TRUE(parseMasterPlaylist("<html>not found</html>", "http://h/master.m3u8").empty());
  EXPECT_TRUE(parseMasterPlaylist("", "http://h/master.m3u8").empty());
  // A variant tag without its URL line at the end of the text.
  EXPECT_TRUE(
      parseMasterPlaylist("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\n", "http://h/m").empty());
}

TEST(MasterPlaylist, ResolvesUrlsAndFindsHosts) {
  EXPECT_EQ(resolveUrl("http://h:1/a/b/c.m3u8", "./d/./e.ts"), "http://h:1/a/b/d/e.ts");
  EXPECT_EQ(resolveUrl("http://h/a/b/c.m3u8", "../../../x.ts"), "http://h/x.ts");
  EXPECT_EQ(resolveUrl("http://h/a/b/", "c/.."), "http://h/a/b/");
  EXPECT_EQ(resolveUrl("http://h", "x.ts"), "http://h/x.ts");
  EXPECT_EQ(resolveUrl("http://h/a/c.m3u8#frag", "/y.ts"), "http://h/y.ts");

  EXPECT_EQ(urlHost("http://user:pw@Media.test:8080/x"), "Media.test");
  EXPECT_EQ(urlHost("https://[::1]:8443/x"), "[::1]");
  EXPECT_EQ(urlHost("file:///tmp/x.m3u8"), "");
  EXPECT_EQ(urlHost("no-scheme/x"), "");
}

}  // namespace
}  // namespace tav::gstreamer
