/// \file
/// Scenes that a test writes down as text.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "ovo/Stage.h"

namespace vela_test {

/// Opens a scene from the text that follows `#usda 1.0`; null, with a failure of the test, when it
/// does not open. The file is removed again: nothing of it is read later.
inline std::shared_ptr<ovo::Stage> stageOf(const std::string& text) {
  static int number = 0;
  const std::string file = testing::TempDir() + "vela_text_" + std::to_string(getpid()) + "_" +
                           std::to_string(number++) + ".usda";
  std::ofstream(file) << "#usda 1.0\n" << text;
  std::string why;
  std::shared_ptr<ovo::Stage> stage = ovo::Stage::open(file, &why);
  std::filesystem::remove(file);
  EXPECT_TRUE(stage) << why << "\n" << text;
  return stage;
}

/// A mesh of one square of two units in its x-y plane, facing +z, about its zero point.
/// \param more properties, a line each
inline std::string squareText(const std::string& name, const std::string& more = "") {
  return "def Mesh \"" + name +
         "\"\n{\n int[] faceVertexCounts = [4]\n int[] faceVertexIndices = [0, 1, 2, 3]\n"
         " point3f[] points = [(-1,-1,0), (1,-1,0), (1,1,0), (-1,1,0)]\n"
         " uniform token subdivisionScheme = \"none\"\n" +
         more + "}\n";
}

/// The property lines that put a prim at a place.
inline std::string at(double x, double y, double z) {
  return " double3 xformOp:translate = (" + std::to_string(x) + ", " + std::to_string(y) + ", " +
         std::to_string(z) + ")\n uniform token[] xformOpOrder = [\"xformOp:translate\"]\n";
}

}  // namespace vela_test
