// End-to-end runs of `nimbo scene` on the reader's seed files: the JSON
// fields and their order, floats that read back exactly, poses, and the
// error object and exit codes.
#include <gtest/gtest.h>

#include <string>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

class NimboScene : public NimboTest {
 protected:
  static std::string Seed(const std::string& name) { return std::string(NIMBO_SOURCE_DIR "/fuzz/corpus/3ds/") + name; }
};

TEST_F(NimboScene, JsonHoldsTheSceneAsTheReaderStoresIt) {
  const RunResult r = Run({"scene", Seed("sample.3ds"), "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  const std::string& j = r.out;
  EXPECT_EQ(j.rfind("{\"ok\": true, \"version\": 3, \"frames\": {\"start\": 0, \"end\": 120, \"count\": 121}, "
                    "\"ambient\": [10, 10, 10], \"materials\": [{\"name\": \"default\", \"index\": 0, ",
                    0),
            0u)
      << j.substr(0, 300);
  // 51/255 as the float the reader holds, in digits that read back to it.
  EXPECT_NE(j.find("{\"name\": \"red plastic\", \"index\": 1, \"ambient\": [0.200000003, 0, 0], \"diffuse\": [1, 0, 0]"),
            std::string::npos);
  EXPECT_NE(j.find("\"flags\": 511, \"maps\": {\"texture\": \"bricks.png\", \"specular\": \"spec.png\", "
                   "\"reflection\": \"refl.png\", \"opacity\": \"opac.png\", \"bump\": \"bump.png\"}}"),
            std::string::npos);
  EXPECT_NE(j.find("\"maps\": {\"texture\": null, \"specular\": null"), std::string::npos);
  EXPECT_NE(j.find("{\"name\": \"Box\", \"index\": 3, \"hidden\": false, \"vertices\": 8, \"faces\": 12, "
                   "\"texcoords\": true, \"matrix\": [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1], "
                   "\"pivot\": [0.5, 0.5, 0.5], \"first_vertex\": 0, \"last_vertex\": 7, "
                   "\"face_materials\": {\"default\": 7, \"red plastic\": 4, \"float colours\": 1}, "
                   "\"tracks\": {\"position\": 3, \"rotation\": 3, \"scale\": 2, \"morph\": 2, \"hide\": 3}, "
                   "\"node_id\": 0, \"parent\": null}"),
            std::string::npos);
  EXPECT_NE(j.find("{\"name\": \"Lid\", \"index\": 4, \"hidden\": true, \"vertices\": 8, \"faces\": 12, "
                   "\"texcoords\": false"),
            std::string::npos);
  EXPECT_NE(j.find("\"node_id\": 2, \"parent\": \"Group\"}"), std::string::npos);
  EXPECT_NE(j.find("\"lights\": [{\"name\": \"Spot01\", \"index\": 7, \"position\": [1, 3, 2], "
                   "\"color\": [1, 0.5, 0.25], \"spot\": true, \"target\": [4, 6, 5]}]"),
            std::string::npos);
  EXPECT_NE(j.find("\"cameras\": [{\"name\": \"Camera01\", \"index\": 8, \"position\": [10, 30, 20], "
                   "\"target\": [0, 0, 0], \"bank\": 0.785398185, \"lens\": 35, \"near\": 1.5, \"far\": 1000}], "
                   "\"dummies\": 1}\n"),
            std::string::npos);
  EXPECT_EQ(j.find("positions"), std::string::npos);
  EXPECT_EQ(j.find("pose"), std::string::npos);
}

TEST_F(NimboScene, VerticesAndPoses) {
  const RunResult r = Run({"scene", Seed("sample.3ds"), "--json", "--vertices", "--frame", "50"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("\"positions\": [[0, 0, 0], [1, 0, 0], [0, 0, 1], [1, 0, 1], [0, 1, 0]"), std::string::npos);
  EXPECT_NE(r.out.find("\"triangles\": [[0, 1, 3, 7], [0, 3, 2, 7]"), std::string::npos);
  // Frame 50 is the box's middle position key: (10, 20, 30) in the file.
  EXPECT_NE(r.out.find("\"pose\": {\"position\": [10, 30, 20], \"rotation\": ["), std::string::npos);
  EXPECT_NE(r.out.find("\"scale\": [1.5, 1.5, 1.5], \"hidden\": false}"), std::string::npos) << r.out;

  const RunResult text = Run({"scene", Seed("sample.3ds"), "--frame", "25"});
  ASSERT_EQ(text.code, 0) << text.err;
  EXPECT_NE(text.out.find("4 meshes (32 vertices, 48 faces), 1 lights, 1 cameras, 1 dummies"), std::string::npos)
      << text.out;
  EXPECT_NE(text.out.find("at frame 25:"), std::string::npos);
}

TEST_F(NimboScene, FailuresGiveTheReadersCodeAndText) {
  RunResult r = Run({"scene", Path("missing.3ds"), "--json"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, "{\"ok\": false, \"code\": 4, \"message\": \"4 : file not found\"}\n");

  std::string bytes = ReadFile(Seed("triangle.3ds"));
  bytes[28] = 0;
  std::ofstream(Path("v0.3ds"), std::ios::binary) << bytes;
  r = Run({"scene", Path("v0.3ds"), "--json"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, "{\"ok\": false, \"code\": 6, \"message\": \"6 : wrong format version\"}\n");
  r = Run({"scene", Path("v0.3ds")});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("6 : wrong format version"), std::string::npos);

  std::ofstream(Path("empty.3ds")).close();
  r = Run({"scene", Path("empty.3ds"), "--json"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, "{\"ok\": false, \"code\": 0, \"message\": \"0 : no error\"}\n");

  EXPECT_EQ(Run({"scene"}).code, 2);
  EXPECT_EQ(Run({"scene", Seed("sample.3ds"), "--frame", "soon"}).code, 2);
  EXPECT_EQ(Run({"scene", Seed("sample.3ds"), "second.3ds"}).code, 2);
  const RunResult help = Run({"scene", "-h"});
  EXPECT_EQ(help.code, 0);
  EXPECT_NE(help.out.find("usage: nimbo scene FILE"), std::string::npos);
}

}  // namespace
}  // namespace nimbo::host
