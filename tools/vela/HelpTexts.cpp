#include "HelpTexts.h"

#include "Text.h"
#include "vela/picture/LayerTable.h"

namespace command {

namespace {

constexpr const char* kRenderHelp =
    R"(vela render FILE -o OUT.exr [--png OUT.png] [options]: renders a scene to a picture.

  -o, --output OUT.exr   linear colour and data, in layers
  --png OUT.png          the same colour as sRGB, over a plain backdrop
  --layers LIST          @LAYERS@
  --camera PATH          camera prim; else the first of the scene; else one that shows all of it
  --lens LENS            perspective, orthographic, spherical (all around, 2:1), cylindrical
  --size WxH             1280x720
  --time T               time code; else the scene's default values
  --samples N            rays a pixel, rounded to a square: 16. With 1, pixel centres
  --pattern P            how samples are spread over the pixel: jittered, regular
  --threads N            0: as many as the machine has. The picture is the same for any number
  --include-type T       only prims of this type (may be repeated)
  --exclude PATH         not this prim nor what is below it (may be repeated)
  --purpose LIST         default,render; also proxy, guide
  --invisible            also what the scene hides
  --subdivide N          refine subdivision surfaces N times, by their scheme, boundaries, creases,
                         corners and holes: 0
  --smooth               normals mixed between points, in N too; polygon meshes without normals get
                         some. Edges of more than 53 degrees stay sharp on them, on creased and
                         bilinear surfaces and where subdivision surfaces are not refined
  --engine E             tracer; hit-detector: what applications see that pick with it
  --selection S.sel      tints what the selection has (vela select makes one)

@CHANNELS@

Data layers are of the pixel's centre.
Instances of point instancers are named by prim and number, as /World/Many/Proto[17], outer
instancers first; where the prim lies elsewhere the instancer is named too, as
/Lib/Leaf[/World/Many 17].
Cubes, spheres, cylinders, cones, capsules and planes are meshes of up to 128 sides; their face.id
is of that mesh.
A refined mesh keeps its numbers: face.id is the scene's face that the refined one comes from, here
as in vela pick and select. Its normals are computed. Without --subdivide such surfaces show as
their control meshes; meshes of the scheme none always do.
Small scenes take seconds; Ctrl-C leaves nothing half written.

Examples
  vela render examples/demo/demo.usda -o demo.exr --png demo.png
  vela render examples/demo/demo.usda --png all.png --lens spherical --samples 4
  vela render examples/demo/demo.usda -o data.exr --layers depth,N,prim --size 640x360 --time 24
  vela render examples/demo/demo.usda -o fine.exr --subdivide 2 --smooth
)";

}  // namespace

const char* overallHelp() {
  return R"(vela: pictures and facts of 3D scenes (.usd .usda .usdc .usdz)

  vela render FILE -o OUT.exr [--png OUT.png]   a picture, with depth, positions, normals and ids
  vela pick FILE --pixel X,Y                    what is under a pixel, or along a ray
  vela info FILE                                what a scene holds
  vela mesh FILE [PRIM]                         its meshes in numbers, and their defects
  vela make SHAPE -o OUT.usda                   a cube, grid, cylinder or sphere
  vela channels                                 the names that image channels have
  vela select FILE --rect X0,Y0,X1,Y1 -o S.sel  what shows in a rectangle, as a selection
  vela resolve REF...                           the files that asset references stand for
  vela VERB --help                              the options of a verb, with examples
  vela --version

Every FILE to read may be an asset reference: OPENASSETIO_DEFAULT_CONFIG names the configuration of
the asset manager.

Every verb takes --log-level quiet|error|warning|message|verbose and --log-file FILE; without a
file, and without HALDEN_LOG_FILE, the log goes to standard error.

Exit codes: 0 done, 1 bad input, 2 wrong usage, 130 interrupted.
)";
}

// With what the table of layers says in the places that are marked.
std::string renderHelp() {
  std::string layers, others, channels;
  for (const vela::picture::LayerInfo& info : vela::picture::layerTable()) {
    if (info.isDefault)
      layers += (layers.empty() ? "" : ",") + info.name;
    else
      others += ", " + info.name;
    if (info.isPart) continue;
    channels += channels.empty() ? "In the EXR:" : ",";
    for (const std::string& channel : info.channels) channels += " " + channel;
    channels += " " + info.help;
  }
  std::string help = kRenderHelp;
  const auto put = [&](const std::string& mark, const std::string& text) {
    help.replace(help.find(mark), mark.size(), text);
  };
  put("@LAYERS@", layers + " (the default)" + others);
  put("@CHANNELS@", wrapText(channels + ".", 100));
  return help;
}

const char* pickHelp() {
  return R"(vela pick FILE --pixel X,Y | --ray OX,OY,OZ,DX,DY,DZ [options]: says what a ray meets.

  --pixel X,Y            pixel of the picture that vela render would make with the same options; 0,0
                         is top left
  --ray O...,D...        world origin and direction; the distance is in units of the direction's
                         length
  --json                 as JSON
  --camera PATH, --lens LENS, --size WxH, --time T, --include-type T, --exclude PATH,
  --purpose LIST, --invisible, --subdivide N, --smooth, --engine E
                         as for vela render

Prints the prim's path (of an instance with its number, as vela render names it), its entry
(render's prim.id less 1), face, distance, world position and normal, the last as the layer N has
it.

Examples
  vela pick examples/demo/demo.usda --pixel 640,360
  vela pick examples/demo/demo.usda --ray 0,200,0,0,-1,0 --json
)";
}

const char* selectHelp() {
  return R"(vela select FILE --rect X0,Y0,X1,Y1 -o S.sel [options]:
  selects what shows in a rectangle of the picture.
vela select --show S.sel [--json]: says what a selection holds.

  --rect X0,Y0,X1,Y1     pixels of the picture that vela render would make with the same options,
                         both corners included
  --parts P              objects (the default), faces, vertices: those of the faces met that lie in
                         the rectangle
  --through              also what is hidden behind something
  -o, --output S.sel     the selection, as text
  --add S.sel            begin with this selection instead of an empty one; may be the output's own
  --show S.sel           print a selection instead
  --json                 print it as JSON
  --camera PATH, --lens LENS, --size WxH, --time T, --include-type T, --exclude PATH,
  --purpose LIST, --invisible, --subdivide N, --smooth, --engine E
                         as for vela render

Rays go through the centres of the pixels. What is picked gets the value 1. Of refined meshes the
scene's own faces are picked, and its own vertices where they have come to lie.

Examples
  vela select examples/demo/demo.usda --rect 500,480,860,660 -o bowl.sel
  vela select examples/demo/demo.usda --rect 300,240,500,600 --parts faces --add bowl.sel -o two.sel
  vela select --show two.sel
  vela render examples/demo/demo.usda --png two.png --selection two.sel --samples 4
)";
}

const char* infoHelp() {
  return R"(vela info FILE [options]: says what a scene holds.

  --json                 as JSON, complete
  --time T               time code at which counts and cameras are read

Prints axes, units and times, prims by type, meshes with their counts, cameras in plain units.

Examples
  vela info examples/demo/demo.usda
  vela info examples/demo/demo.usda --json
)";
}

const char* channelsHelp() {
  return R"(vela channels [options]: the registry of image channels and layers, as plug-ins find it.

  --name NAME            what this name is: a channel, a layer, or what a new channel of that name
                         would be
  --json                 as JSON

Examples
  vela channels
  vela channels --name depth.Z
  vela channels --json
)";
}

const char* resolveHelp() {
  return R"(vela resolve REF... [options]: the files that asset references stand for.

  --json                 as JSON, with the reason for each that does not resolve

Prints a path a line, in order; for a reference that does not resolve a line on standard error
instead, and the exit code is 1. The asset manager is that of the OpenAssetIO configuration that
OPENASSETIO_DEFAULT_CONFIG names; it may be native or written in Python. Every FILE that a verb
reads may be such a reference; what exists as a path is that path.

Examples (with OPENASSETIO_DEFAULT_CONFIG=examples/assets/openassetio.toml)
  vela resolve bal:///demo/still-life
  vela resolve bal:///demo/still-life?v=1 --json
  vela info bal:///demo/still-life
)";
}

const char* meshHelp() {
  return R"(vela mesh FILE [PRIM] [options]: says what meshes are made of, and what is wrong with them.

  --json                 as JSON
  --time T               time code at which meshes are read

Prints counts, edges, bounds, scheme and primvars of one mesh or of all. Defects are counts that do
not add up, faces of fewer than three vertices, indices out of range, points that are not finite or
not used, faces without area, folded or naming a point twice, neighbours of opposite windings, and
primvars that do not fit. With any the exit code is 1.

Examples
  vela mesh examples/demo/demo.usda
  vela mesh examples/demo/demo.usda --json
)";
}

const char* makeHelp() {
  return R"(vela make SHAPE -o OUT.usda [options]: writes a mesh with points, faces, UVs and normals.

  SHAPE                  cube, grid (lying, seen from above), cylinder, sphere
  -o, --output FILE      .usda, .usdc or .usd
  --size X,Y,Z           2,2,2: outer measures, around the origin
  --rows N               divisions along y (grid: along z): 1; cylinder 1; sphere 16 (at least 2)
  --columns N            divisions along x (cube: also z; cylinder, sphere: around): 1; cylinder and
                         sphere 32 (at least 3)
  --scheme S             none, catmullClark, loop, bilinear. Refined surfaces have no normals of
                         their own
  --separate-points      cube: every face its own points; cylinder: every cap its own ring
  --no-caps              cylinder: open

Examples
  vela make sphere -o sphere.usda --rows 24 --columns 48
  vela make cube -o cube.usdc --size 1,2,1 --rows 4 --columns 2 --scheme catmullClark
)";
}

}  // namespace command
