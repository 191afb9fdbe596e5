#include "ovo/Value.h"

namespace ovo {

namespace {

struct Row {
  int code;
  int elements;
  std::string name;
};

const Row* findRow(int code) {
  // Never destroyed: names are still printed while the process ends.
  static const auto* const table = new Row[11]{
      {Value::int_, 1, "int"},        {Value::int2, 2, "int2"},     {Value::int3, 3, "int3"},
      {Value::int4, 4, "int4"},       {Value::float_, 1, "float"},  {Value::float2, 2, "float2"},
      {Value::float3, 3, "float3"},   {Value::float4, 4, "float4"}, {Value::color3f, 3, "color3f"},
      {Value::color4f, 4, "color4f"}, {Value::none, 0, "none"},
  };
  for (int i = 0; i < 11; ++i)
    if (table[i].code == code) return &table[i];
  return nullptr;
}

}  // namespace

const std::string& Value::getTypeName(int type) {
  static const std::string* const unknown = new std::string;
  const Row* const row = findRow(type);
  return row ? row->name : *unknown;
}

int Value::getNumDataElements(int type) noexcept {
  const Row* const row = findRow(type);
  return row ? row->elements : 0;
}

}  // namespace ovo
