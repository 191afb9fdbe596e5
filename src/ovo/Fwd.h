/// \file
/// The names of this folder, for headers that only pass them on.
#pragma once

namespace ovo {

template <class T>
class Array;
class Attribute;
class CameraPrim;
class Face;
class Faces;
class MeshPrim;
class Path;
class PointInstancerPrim;
class Prim;
class Primvar;
class Stage;
class Token;
class Value;
class XformCache;
class XformablePrim;
struct ArgSet;
struct CameraParameters;
struct MeshTessellateContext;
struct Tokens;

}  // namespace ovo
