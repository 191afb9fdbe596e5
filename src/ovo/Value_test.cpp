#include "ovo/Value.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using ovo::Value;

TEST(Value, CodesAreTheNumbersThatCallersExchange) {
  struct Row {
    int code, elements;
    const char* name;
    Value::Type type;
  };
  const Row rows[] = {{17, 1, "int", Value::int_},        {29, 2, "int2", Value::int2},
                      {37, 3, "int3", Value::int3},       {45, 4, "int4", Value::int4},
                      {23, 1, "float", Value::float_},    {33, 2, "float2", Value::float2},
                      {41, 3, "float3", Value::float3},   {49, 4, "float4", Value::float4},
                      {71, 3, "color3f", Value::color3f}, {77, 4, "color4f", Value::color4f},
                      {127, 0, "none", Value::none}};
  for (const Row& row : rows) {
    EXPECT_EQ(static_cast<int>(row.type), row.code);
    EXPECT_EQ(Value::getTypeName(row.code), row.name);
    EXPECT_EQ(Value::getNumDataElements(row.code), row.elements) << row.name;
  }
}

TEST(Value, AnyOtherNumberHasNoNameAndNoElements) {
  for (int code : {0, 1, 16, 18, 78, 126, 128, -17, std::numeric_limits<int>::min(),
                   std::numeric_limits<int>::max()}) {
    EXPECT_EQ(Value::getTypeName(code), "") << code;
    EXPECT_EQ(Value::getNumDataElements(code), 0) << code;
  }
}

}  // namespace
