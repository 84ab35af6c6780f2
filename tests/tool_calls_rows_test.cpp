#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "server.hpp"

namespace kestrune::tool {
namespace {

namespace fs = std::filesystem;

std::string answer(const std::string& line) { return answer_request(line).text; }

TEST(answer_request, code_lines_lists_rows_by_first_appearance_then_line) {
  std::string dir = (fs::temp_directory_path() / "kestrune-tool-XXXXXX").string();
  ASSERT_NE(::mkdtemp(dir.data()), nullptr);
  std::ofstream(fs::path(dir) / "b.py") << "b1\nb2\n";
  std::ofstream(fs::path(dir) / "a.py") << "a1\n";
  const std::string root = "\"root\":\"" + dir + "\"";
  EXPECT_EQ(answer(R"({"call":"code_lines","args":{)" + root +
                   R"(,"places":[["b.py",2],["a.py",1],["b.py",1],["b.py",2],["a.py",7]]}})"),
            R"([["b.py",1,"b1"],["b.py",2,"b2"],["a.py",1,"a1"]])");
  EXPECT_EQ(answer(R"({"call":"code_lines","args":{"root":null,"places":[["b.py",1]]}})"), "[]");
  for (const std::string bad : {R"([["b.py"]])", R"([["b.py",1.0]])", R"([[1,"b.py"]])", R"(["b.py",1])"}) {
    EXPECT_EQ(answer(R"({"call":"code_lines","args":{)" + root + R"(,"places":)" + bad + "}}"),
              R"({"error":"item 0 of argument \"places\" must be a [path, line] pair"})")
        << bad;
  }
  fs::remove_all(dir);
}

TEST(answer_request, builds_reference_endpoint_component_and_test_rows) {
  EXPECT_EQ(answer(R"({"call":"build_reference","args":{"reference":{"file_path":"a.py","line":3,)"
                   R"("caller_symbol":{"kind":"method"},"usage_type":"call"},"code":"go"}})"),
            R"({"file":"a.py","line":3,"code":"go","caller_kind":"method","usage_type":"call"})");
  EXPECT_EQ(answer(R"({"call":"build_api_endpoint","args":{"symbol":{"fqn":"m.get"},"file_path":null}})"),
            R"({"fqn":"m.get","name":null,"kind":null,"file":"","line":null,"signature":null,"component":null})");
  EXPECT_EQ(answer(R"({"call":"build_component","args":{"component":{"layer":"web","symbol_count":2}}})"),
            R"({"name":null,"layer":"web","path_pattern":null,"file_count":null,"symbol_count":2})");
  EXPECT_EQ(
      answer(R"({"call":"build_test_coverage","args":{"test_file":"t","source_file":"s","symbols_imported":["f"]}})"),
      R"({"test_file":"t","source_file":"s","symbols_imported":["f"]})");
}

}  // namespace
}  // namespace kestrune::tool
