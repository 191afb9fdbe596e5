#include "VerbTable.h"

#include <algorithm>

#include "vela/Version.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/LayerTable.h"

namespace command {

namespace {

using Rows = std::vector<OptionRow>;

using vela::picture::LayerGroup;
using vela::picture::LayerInfo;

// The layers by name, those that are rendered unasked first; and what their channels hold.
std::string layerList() {
  std::string layers, others;
  for (const std::string& name : vela::picture::layerNames()) {
    const LayerInfo* info = vela::picture::findLayerInfo(name);
    if (info && info->isDefault)
      layers += (layers.empty() ? "" : ",") + name;
    else
      others += ", " + name;
  }
  return layers + " (the default)" + others;
}

std::string channelList() {
  std::string text;
  for (const std::string& name : vela::picture::layerNames()) {
    const LayerInfo* info = vela::picture::findLayerInfo(name);
    if (!info || info->isPart) continue;
    text += text.empty() ? "In the EXR:" : ",";
    for (const std::string& channel : info->channels) text += " " + channel;
    text += " " + info->help;
  }
  for (const LayerGroup& group : vela::picture::layerGroups())
    text += ", " + group.layers.front() + ".r to " + group.layers.back() + ".a " + group.help;
  return text + ".";
}

OptionRow sceneFile() { return {"FILE", "", "the scene, or an asset reference", Offer::scenes}; }

OptionRow json(const char* help) { return {"--json", "", help}; }

OptionRow output(const char* value, const char* help, Offer offer) {
  return {"-o,--output", value, help, offer};
}

// Of every verb that looks at a scene through a camera.
OptionGroup viewGroup() {
  return {"Camera",
          {{"--camera", "NAME",
            "path of a camera prim, its name or a part of its path that no other has; else the "
            "first of the scene; else one that shows all of it"},
           {"--lens",
            "LENS",
            "perspective, orthographic, spherical (all around, 2:1), cylindrical",
            Offer::words,
            {"perspective", "orthographic", "spherical", "cylindrical"}},
           {"--size", "WxH", "or W alone, so high as the camera's film asks; else 1280 wide"},
           {"--time", "T", "time code; else the scene's default values"},
           {"--turn", "DEGREES",
            "the camera goes around the middle of what shows, about the scene's up axis"},
           {"--clip", "",
            "nothing nearer or farther than the camera's clipping range, measured along its axis, "
            "nor what its clipping planes cut off"}}};
}

OptionGroup sceneGroup() {
  return {"What shows",
          {{"--include-type",
            "T",
            "only prims of this type (may be repeated)",
            Offer::nothing,
            {},
            true},
           {"--exclude",
            "PATH",
            "not this prim nor what is below it (may be repeated)",
            Offer::nothing,
            {},
            true},
           {"--mask",
            "PATH",
            "nothing but this prim and what is below it (may be repeated)",
            Offer::nothing,
            {},
            true},
           {"--variant",
            "PRIM:SET=NAME",
            "this variant instead of the one that the scene chooses, as /Chair:colour=red (may be "
            "repeated)",
            Offer::nothing,
            {},
            true},
           {"--purpose",
            "LIST",
            "default,render; also proxy, guide",
            Offer::words,
            {"default", "render", "proxy", "guide"}},
           {"--invisible", "", "also what the scene hides"},
           {"--subdivide", "N",
            "refine subdivision surfaces N times, by their scheme, boundaries, creases, corners "
            "and holes: 0"},
           {"--smooth", "",
            "normals mixed between points, in N too; polygon meshes without normals get some. "
            "Edges of more than 53 degrees stay sharp on them, on creased and bilinear surfaces "
            "and where subdivision surfaces are not refined"},
           {"--engine",
            "E",
            "tracer; hit-detector: what applications see that pick with it",
            Offer::words,
            {"tracer", "hit-detector"}}}};
}

// Of every verb that opens scenes. What shows meshes asks for the second part as well.
OptionGroup limitGroup(bool showsMeshes, bool showsTextures) {
  OptionGroup group = {
      "Limits",
      {{"--root", "DIR",
        "files of the scene, and textures, from this folder and what is below it alone",
        Offer::folders},
       {"--max-time", "S", "seconds to open a scene: 600; 0: no limit"},
       {"--max-memory", "MB", "megabytes of memory; else as many as the machine has"},
       {"--max-prims", "N", "prims: 2000000; the rest is left out"},
       {"--max-arcs", "N",
        "places in files that have a say about prims: 20000000; the rest is left out"},
       {"--max-arc-chain", "N", "arcs that lead from one to the next: 500"},
       {"--max-depth", "N", "prims within prims: 1000; the rest is left out"},
       {"--max-layers", "N", "files that a scene is composed of: 100000"}}};
  if (showsMeshes) {
    group.rows.push_back({"--max-instances", "N", "instances of point instancers: 10000000"});
    group.rows.push_back({"--max-faces", "N", "faces of refined surfaces: 10000000"});
  }
  if (showsTextures)
    group.rows.push_back(
        {"--max-texture", "N", "pixels of a texture: 1073741824; larger ones are left out"});
  return group;
}

OptionRow materialPurpose(const char* help, std::vector<std::string> words) {
  return {"--material-purpose", "P", help, Offer::words, std::move(words)};
}

VerbRow renderRow() {
  VerbRow row;
  row.name = "render";
  row.synopses = {"FILE -o OUT.exr [--png OUT.png] [options]", "FILE --show LAYER [options]",
                  "[FILE] --like OUT.exr -o NEW.exr"};
  row.summary = "renders a scene to a picture.";
  row.brief = "a picture, with depth, positions, normals and ids";
  row.arguments = {sceneFile()};
  row.arguments[0].isOptional = true;
  row.groups = {
      {"Output",
       {{"-o,--output",
         "OUT",
         ".exr: linear colour and data, in layers; .png, .jpg: an image of the colour, or of the "
         "one layer of --layers. With {layer} in its name a file for each layer; - is standard "
         "output (may be repeated)",
         Offer::pictures,
         {},
         true},
        {"--png",
         "OUT.png",
         "the colour as an image, whatever the layers (may be repeated)",
         Offer::pictures,
         {},
         true},
        {"--format",
         "F",
         "exr, png or jpg, where a name does not say: exr",
         Offer::words,
         {"exr", "png", "jpg"}},
        {"--layers", "LIST", layerList(), Offer::words, vela::picture::layerNames()},
        {"--show", "LAYER",
         "draws this layer, such as rgba, in the terminal; -o may then be left out. Where standard "
         "output is no terminal the same text goes there, as wide as COLUMNS says or 80 columns, "
         "and where a picture goes there to standard error",
         Offer::words, vela::picture::layerNames()},
        {"--like", "OUT.exr",
         "with the options that made this picture, but for those given here; FILE may be left out "
         "where the scene lies in the current folder or beside the picture",
         Offer::pictures}}},
      {"EXR",
       {{"--compression", "C",
         "none, rle, zips, zip (the default), piz; for colour alone also pxr24, b44, b44a, dwaa, "
         "dwab",
         Offer::words, vela::picture::compressionNames()},
        {"--half", "", "colour as half floats"},
        {"--manifest", "FILE", "the names of mattes in a file beside the picture, as JSON",
         Offer::files}}},
      {"Images",
       {{"--background",
         "B",
         "none (PNG with alpha), or a colour R,G,B from 0 to 1; else a plain "
         "backdrop",
         Offer::words,
         {"none"}},
        {"--exposure", "STOPS", "powers of two, on top of the camera's own exposure: 0"},
        {"--view",
         "V",
         "soft (bright colours roll off, the default), clip, or a view of the configuration that "
         "OCIO names, by default its own",
         Offer::words,
         {"soft", "clip"}},
        {"--display", "D", "a display of that configuration; else its default one"}}},
      viewGroup(),
      {"Lens and shutter",
       {{"--dof", "",
         "depth of field, by the camera's f-stop and focus distance. Data layers stay sharp"},
        {"--motion", "",
         "motion blur, by the camera's shutter: of cameras, transforms, points that move and point "
         "instancers. Data layers are of the frame's own time, lights and materials too"},
        {"--motion-steps", "N", "moments that the samples are spread over: 32"}}},
      {"Part of the picture",
       {{"--overscan", "N",
         "N pixels more beyond each edge: an EXR's data window is so much larger than its display "
         "window. Images go without"},
        {"--region", "X0,Y0,X1,Y1",
         "these pixels of it alone, both corners included, 0,0 at top left; what lies outside the "
         "picture is cut off. An EXR's data window says where they lie, its display window is the "
         "whole picture. Images of depth and P have their range from these pixels"},
        {"--tile", "K/N",
         "the Kth of N bands of rows, from the top: a region, for as many machines"},
        {"--from-tiles", "NAMES",
         "traces nothing and takes the pixels from such bands: EXRs of the same picture, with "
         "{tile} in their names for 1, 2 ...",
         Offer::pictures}}},
      {"Several pictures",
       {{"--frames", "LIST",
         "these time codes: 1-10x2,24. Names have #### or %04d where the frame stands"},
        {"--turntable", "N",
         "N pictures from all sides, the camera going once around what shows; their numbers stand "
         "where frames do"},
        {"--skip-existing", "", "not those whose files are all there"}}},
      sceneGroup(),
      {"Quality",
       {{"--samples", "N", "rays a pixel, rounded to a square: 16. With 1, pixel centres"},
        {"--pattern",
         "P",
         "how samples are spread over the pixel: jittered, regular",
         Offer::words,
         {"jittered", "regular"}},
        {"--threads", "N", "0: as many as the machine has. The picture is the same for any number"},
        materialPurpose("full; preview: materials that are bound for previews go before others; "
                        "none: no materials, displayColor alone",
                        {"full", "preview", "none"}),
        {"--lights",
         "L",
         "scene: the scene's lights, Vela's own where it has none; own: Vela's own, a key light "
         "and "
         "a fill light by the camera and daylight; both",
         Offer::words,
         {"scene", "own", "both"}},
        {"--bounces", "N",
         "how often surfaces scatter the light of the scene's lights on, 0 to 8: 1"},
        {"--texture-memory", "MB",
         "megabytes for textures: 1024. The largest are shown with fewer pixels when all would "
         "take more"},
        {"--stats", "",
         "says on standard error how long each step took, how much memory, and the rays"},
        {"--selection", "S.sel", "tints what the selection has (vela select makes one)",
         Offer::selections}}},
      limitGroup(true, true)};
  row.notes = {
      channelList(),
      "Data layers are of the pixel's centre. Z is the depth along the camera's axis (of the "
      "spherical and cylindrical lenses the distance), in scene units; infinite where nothing is.",
      "An EXR's header has the camera, the frame and the options that made the picture, in one "
      "form "
      "whatever was typed: the same scene, options and version make the same bytes, on any "
      "machine.",
      "Instances of point instancers are named by prim and number, as /World/Many/Proto[17], "
      "outer instancers first; where the prim lies elsewhere the instancer is named too, as "
      "/Lib/Leaf[/World/Many 17].",
      "Cubes, spheres, cylinders, cones, capsules and planes are meshes of up to 128 sides; their "
      "face.id is of that mesh.",
      "A refined mesh keeps its numbers: face.id is the scene's face that the refined one comes "
      "from, here as in vela pick and select. Its normals are computed. Without --subdivide such "
      "surfaces show as their control meshes; meshes of the scheme none always do.",
      "With --camera all each camera makes a picture: names have {camera} in them. A picture that "
      "fails does not keep the others from being made; those that did are listed at the end, and "
      "the exit code is 4.",
      "Small scenes take seconds; Ctrl-C leaves nothing half written."};
  row.examples = {
      "vela render examples/demo/demo.usda -o demo.exr --png demo.png --size 640 --samples 9",
      "vela render examples/demo/demo.usda -o bowl.exr --size 1280 --region 500,480,860,660",
      "vela render examples/demo/demo.usda --png all.png --lens spherical --size 640 --samples 4",
      "vela render examples/demo/demo.usda -o look.jpg -o matte.exr --layers crypto_object,rgba "
      "--size 640 --samples 4",
      "vela render examples/demo/demo.usda -o data.{layer}.png --layers depth,N --size 320x180",
      "vela render examples/demo/demo.usda -o data.exr --layers depth,N,prim --size 640x360 "
      "--time 24",
      "vela render examples/demo/demo.usda -o fine.exr --subdivide 2 --smooth --size 320",
      "vela render examples/demo/demo.usda --show rgba --size 320 --samples 4"};
  return row;
}

// The rows of those names, of one of the groups of another verb.
OptionGroup rowsOf(const VerbRow& verb, const std::string& title,
                   const std::vector<std::string>& names) {
  OptionGroup group{title, {}};
  for (const std::string& name : names)
    if (const OptionRow* row = verb.find(name)) group.rows.push_back(*row);
  return group;
}

VerbRow viewRow() {
  const VerbRow render = renderRow();
  VerbRow row;
  row.name = "view";
  row.synopses = {"FILE [options]"};
  row.summary = "shows a scene in a browser.";
  row.brief = "a scene in a browser, from a machine without a display";
  row.arguments = {sceneFile()};
  row.groups = {
      {"Page",
       {{"--port", "N", "where it listens: 0, any port that is free"},
        {"--bind", "ADDRESS",
         "listens at this address of the machine instead of 127.0.0.1, 0.0.0.0 for all. Others on "
         "the network can then ask; what is sent is not encrypted, and the token in the address "
         "is all that keeps them out"},
        {"--open", "", "opens the page in a browser here: that of BROWSER, or xdg-open's"}}},
      rowsOf(render, "Images", {"--background", "--exposure", "--view", "--display"}),
      viewGroup(),
      rowsOf(render, "Lens", {"--dof"}),
      sceneGroup(),
      rowsOf(render, "Quality",
             {"--samples", "--pattern", "--threads", "--material-purpose", "--lights", "--bounces",
              "--texture-memory"}),
      limitGroup(true, true)};
  row.notes = {
      "Prints the address of the page when the scene is open, and answers until Ctrl-C. The "
      "address has a random token in it, new with each run; who does not know it gets nothing. "
      "Requests that name another host or come from another page are refused, and nothing that "
      "the page sends names a file here: the scene is the one of the command line.",
      "The picture of the page, once it is whole, and what is downloaded from it are those of "
      "vela render with the same options, byte for byte.",
      "From another machine, a tunnel is safer than --bind: ssh -L 8000:127.0.0.1:8000 HOST with "
      "vela view FILE --port 8000 there, and the printed address in the browser here."};
  row.examples = {"vela view examples/demo/demo.usda",
                  "vela view examples/demo/demo.usda --port 8000 --size 960 --samples 9"};
  return row;
}

// What vela render takes of a frame, and of the job.
VerbRow submitRow() {
  const VerbRow render = renderRow();
  VerbRow row;
  row.name = "submit";
  row.synopses = {"FILE --frames LIST -o OUT.####.exr --job JOB.json [options]",
                  "FILE --frames LIST -o OUT.####.exr --estimate [options]",
                  "FILE --check VERSION [--folder FOLDER] [--seen LIST]"};
  row.summary = "writes a job for a render farm.";
  row.brief = "frames as a job for a render farm";
  row.arguments = {sceneFile()};
  row.groups = {
      {"The job",
       {{"--job", "JOB.json",
         "an Open Job Description template, which farm managers take; the files that it reads "
         "and the folders that it writes to stand beside it, in JOB.attachments.json",
         Offer::files},
        {"--chunk", "N",
         "frames a task: 1. More need a farm that knows the extension TASK_CHUNKING"},
        {"--tiles", "N",
         "each frame in N bands of rows, a task each, and a task that joins them: 1"},
        {"--timeout", "SECONDS", "a task that takes longer is ended; else none is"},
        {"--command", "VELA", "what workers call: vela"}}},
      {"What it would take",
       {{"--estimate", "",
         "instead of a job: renders some seconds of the first, the middle and the last frame here "
         "and says what all of it takes on several machines like this one, a frame a task and in "
         "bands"},
        {"--machines", "LIST", "for how many machines: 1,10,100,1000"},
        {"--price", "P", "of a machine, an hour; then it says what the job costs, too"},
        {"--bandwidth", "MB/S",
         "of the network to each machine, for the scene's files and the pictures; else they are "
         "where it is"}}},
      {"On a worker",
       {{"--check", "VERSION",
         "fails where this is not that version, FILE cannot be read, a folder not be written to, "
         "or a file not be seen. Jobs begin with it"},
        {"--folder",
         "FOLDER",
         "one that must be there and let files be written (may be repeated)",
         Offer::folders,
         {},
         true},
        {"--seen", "LIST",
         "what of the scene's layers, textures and other files the machine saw that made the job: "
         "these must be here. Without it what is missing is said",
         Offer::files},
        {"--input",
         "INPUT",
         "one more file that must be here (may be repeated)",
         Offer::files,
         {},
         true}}}};
  // What makes several pictures, or needs other pictures, is not of one frame.
  const std::vector<std::string> others = {"--like", "--turntable", "--skip-existing", "--time",
                                           "--show"};
  for (const OptionGroup& group : render.groups) {
    OptionGroup kept{group.title, {}};
    for (const OptionRow& option : group.rows)
      if (std::find(others.begin(), others.end(), option.key()) == others.end())
        kept.rows.push_back(option);
    if (!kept.rows.empty()) row.groups.push_back(kept);
  }
  row.notes = {
      "Prints the line that runs the job on this machine, by openjd of the package openjd-cli. "
      "Paths are parameters without defaults, since each machine has them where it has them; "
      "frames, size, layers and the command are parameters with defaults.",
      "Each task renders its frames by vela render. Pictures that are there already are left "
      "alone: a job that was stopped is run again, and renders what is missing.",
      "With --tiles bands of each frame are rendered as EXRs of all that its outputs show, beside "
      "its first output, and stay there. Joined they are the frame to the byte.",
      "A session begins by checking the worker: another version of vela, a scene that it cannot "
      "read, a layer, texture or other file of it that it does not see, or a folder that it cannot "
      "write to ends it before anything is rendered. What is missing where the job is made may be "
      "missing on workers."};
  row.examples = {
      "vela submit examples/demo/demo.usda --frames 1-24 -o demo.####.exr --job demo-job.json "
      "--size 640",
      "vela submit examples/demo/demo.usda --frames 1-240 -o demo.####.exr --estimate --price 0.35 "
      "--size 64 --samples 1",
      std::string("vela submit examples/demo/demo.usda --check ") + vela::version() +
          " --folder ."};
  return row;
}

VerbRow pickRow() {
  VerbRow row;
  row.name = "pick";
  row.synopses = {"FILE --pixel X,Y [options]", "FILE --ray OX,OY,OZ,DX,DY,DZ [options]"};
  row.summary = "says what a ray meets.";
  row.brief = "what is under a pixel, or along a ray";
  row.arguments = {sceneFile()};
  row.groups = {
      {"The ray",
       {{"--pixel", "X,Y",
         "pixel of the picture that vela render would make with the same options; 0,0 "
         "is top left"},
        {"--ray", "O...,D...",
         "world origin and direction; the distance is in units of the direction's "
         "length"},
        materialPurpose("full; preview: materials that are bound for previews go before others",
                        {"full", "preview"}),
        json("as JSON")}},
      viewGroup(),
      sceneGroup(),
      limitGroup(true, false)};
  row.notes = {
      "Prints the prim's path (of an instance with its number, as vela render names it), its "
      "entry (render's prim.id less 1), face, distance, world position and normal, the last as "
      "the layer N has it, and the material that is bound to the face, where one is. Where the ray "
      "meets nothing the exit code is 5."};
  row.examples = {"vela pick examples/demo/demo.usda --pixel 640,360",
                  "vela pick examples/demo/demo.usda --ray 0,200,0,0,-1,0 --json"};
  return row;
}

VerbRow explainRow() {
  VerbRow row;
  row.name = "explain";
  row.synopses = {"FILE --pixel X,Y [options]", "FILE --ray OX,OY,OZ,DX,DY,DZ [options]"};
  row.summary = "says mesh by mesh why a ray meets what it meets.";
  row.brief = "why a pixel shows what it shows, and not the rest";
  row.arguments = {sceneFile()};
  row.groups = {{"The ray",
                 {{"--pixel", "X,Y", "as for vela pick"},
                  {"--ray", "O...,D...", "as for vela pick"},
                  {"--all", "", "also meshes whose boxes the ray does not enter"},
                  json("as JSON")}},
                viewGroup(),
                sceneGroup(),
                limitGroup(true, false)};
  row.notes = {
      "Of each mesh by the tracer and by the hit detector: shows; behind something nearer; "
      "clipped, "
      "met outside the range of the camera alone; missed, its box is entered and no face met; "
      "culled, its box is not entered; degenerate, no face has an area; not taken, the hit "
      "detector "
      "takes plain meshes alone. Of what is left out or hidden also by what, and whether it would "
      "be met. --engine and --smooth change nothing."};
  row.examples = {
      "vela explain examples/demo/demo.usda --pixel 640,360",
      "vela explain examples/demo/demo.usda --pixel 640,360 --exclude /Demo/Room --json"};
  return row;
}

VerbRow infoRow() {
  VerbRow row;
  row.name = "info";
  row.synopses = {"FILE... [options]"};
  row.summary = "says what scenes hold.";
  row.brief = "what scenes hold";
  row.arguments = {sceneFile()};
  row.arguments[0].repeats = true;
  row.groups = {{"Options",
                 {json("as JSON, complete; of several files {\"files\": [...]}"),
                  {"--files", "",
                   "every file that the scene reads instead, a path a line: layers, textures and "
                   "whatever else attributes name. What is not there is not listed"},
                  {"--time", "T", "time code at which counts, boxes and cameras are read"},
                  {"--depth", "N", "how deep the tree is listed: 3; 0: not at all"}}},
                limitGroup(true, false)};
  row.notes = {
      "Prints axes, units and times; the bounding box in scene units and in metres; the tree with "
      "its boxes; prims by type, variants, lights, textures of materials and lights and which of "
      "them are missing, instances; the files that the scene is composed of and the arcs that "
      "bring them in; meshes "
      "with their counts, cameras in plain units, materials. Boxes are of what a picture shows. "
      "Where some of several files cannot be read the exit code is 4."};
  row.examples = {"vela info examples/demo/demo.usda", "vela info examples/demo/demo.usda --files",
                  "vela info examples/demo/demo.usda --json --depth 2"};
  return row;
}

VerbRow meshRow() {
  VerbRow row;
  row.name = "mesh";
  row.synopses = {"FILE... [PRIM] [options]"};
  row.summary = "says what meshes are made of, and what is wrong with them.";
  row.brief = "its meshes in numbers, and their defects";
  row.arguments = {
      sceneFile(),
      {"PRIM", "", "path of one mesh in each; else all", Offer::nothing, {}, false, true}};
  row.arguments[0].repeats = true;
  row.groups = {{"Options",
                 {json("as JSON; of several files {\"files\": [...]}"),
                  {"--time", "T", "time code at which meshes are read"}}},
                limitGroup(false, false)};
  row.notes = {
      "Prints counts, edges, bounds, scheme and primvars of one mesh or of all. Defects are "
      "counts that do not add up, faces of fewer than three vertices, indices out of range, "
      "points that are not finite or not used, faces without area, folded or naming a point "
      "twice, neighbours of opposite windings, and primvars that do not fit. With any the exit "
      "code is 1. The last of several arguments is the PRIM where it is no name of a file. Where "
      "some of several files cannot be read, do not have it or have defects the exit code is 4."};
  row.examples = {"vela mesh examples/demo/demo.usda", "vela mesh examples/demo/demo.usda --json"};
  return row;
}

VerbRow makeRow() {
  const std::vector<std::string> shapes = {"cube", "grid", "cylinder", "sphere"};
  VerbRow row;
  row.name = "make";
  row.synopses = {"SHAPE -o OUT.usda [options]"};
  row.summary = "writes a mesh with points, faces, UVs and normals.";
  row.brief = "a cube, grid, cylinder or sphere";
  row.arguments = {
      {"SHAPE", "", "cube, grid (lying, seen from above), cylinder, sphere", Offer::words, shapes}};
  row.groups = {
      {"Options",
       {output("FILE", ".usda, .usdc or .usd; - is standard output, as text", Offer::scenes),
        {"--size", "X,Y,Z", "2,2,2: outer measures, around the origin"},
        {"--rows", "N", "divisions along y (grid: along z): 1; cylinder 1; sphere 16 (at least 2)"},
        {"--columns", "N",
         "divisions along x (cube: also z; cylinder, sphere: around): 1; cylinder and sphere 32 "
         "(at least 3)"},
        {"--scheme",
         "S",
         "none, catmullClark, loop, bilinear. Refined surfaces have no normals of their own",
         Offer::words,
         {"none", "catmullClark", "loop", "bilinear"}},
        {"--separate-points", "",
         "cube: every face its own points; cylinder: every cap its own ring"},
        {"--no-caps", "", "cylinder: open"}}}};
  row.examples = {"vela make sphere -o sphere.usda --rows 24 --columns 48",
                  "vela make cube -o cube.usdc --size 1,2,1 --rows 4 --columns 2 --scheme "
                  "catmullClark"};
  return row;
}

VerbRow channelsRow() {
  VerbRow row;
  row.name = "channels";
  row.synopses = {"[options]"};
  row.summary = "the registry of image channels and layers, as plug-ins find it.";
  row.brief = "the names that image channels have";
  row.groups = {{"Options",
                 {{"--name", "NAME",
                   "what this name is: a channel, a layer, or what a new channel of that name "
                   "would be"},
                  json("as JSON")}}};
  row.examples = {"vela channels", "vela channels --name depth.Z", "vela channels --json"};
  return row;
}

VerbRow selectRow() {
  VerbRow row;
  row.name = "select";
  row.synopses = {"FILE --rect X0,Y0,X1,Y1 -o S.sel [options]", "--show S.sel... [--json]"};
  row.summary = "selects what shows in a rectangle of the picture; or says what a selection holds.";
  row.brief = "what shows in a rectangle, as a selection";
  row.arguments = {sceneFile()};
  row.arguments[0].isOptional = row.arguments[0].repeats = true;
  row.groups = {
      {"The selection",
       {{"--rect", "X0,Y0,X1,Y1",
         "pixels of the picture that vela render would make with the same options, both corners "
         "included; what lies outside the picture is cut off"},
        {"--parts",
         "P",
         "objects (the default), faces, vertices: those of the faces met that lie in the "
         "rectangle",
         Offer::words,
         {"objects", "faces", "vertices"}},
        {"--through", "", "also what is hidden behind something"},
        output("S.sel", "the selection, as text", Offer::selections),
        {"--add", "S.sel",
         "begin with this selection instead of an empty one; may be the output's own",
         Offer::selections},
        {"--show",
         "S.sel",
         "print a selection instead; others may follow it (may be repeated)",
         Offer::selections,
         {},
         true},
        json("print it as JSON; of several {\"files\": [...]}")}},
      viewGroup(),
      sceneGroup(),
      limitGroup(true, false)};
  row.notes = {
      "Rays go through the centres of the pixels. What is picked gets the value 1. Of refined "
      "meshes the scene's own faces are picked, and its own vertices where they have come to lie. "
      "Where nothing is picked the exit code is 5; the selection is written all the same. Where "
      "some of several that are shown cannot be read it is 4."};
  row.examples = {
      "vela select examples/demo/demo.usda --rect 500,480,860,660 -o bowl.sel",
      "vela select examples/demo/demo.usda --rect 300,240,500,600 --parts faces --add bowl.sel "
      "-o two.sel",
      "vela select --show two.sel bowl.sel",
      "vela render examples/demo/demo.usda --png two.png --selection two.sel --samples 4"};
  return row;
}

VerbRow resolveRow() {
  VerbRow row;
  row.name = "resolve";
  row.synopses = {"REF... [options]"};
  row.summary = "the files that asset references stand for.";
  row.brief = "the files that asset references stand for";
  row.arguments = {
      {"REF", "", "an asset reference, a path or a file: URL", Offer::files, {}, true}};
  row.groups = {{"Options", {json("as JSON, with the reason for each that does not resolve")}}};
  row.notes = {
      "Prints a path a line, in order; for a reference that does not resolve a line on standard "
      "error instead. The exit code is then 1, or 4 when others do resolve. The asset manager is "
      "that of the OpenAssetIO configuration that OPENASSETIO_DEFAULT_CONFIG names; it may be "
      "native or written in Python. Every FILE that a verb reads may be such a reference; what "
      "exists as a path is that path, and so is what a file: URL names.",
      "The examples want OPENASSETIO_DEFAULT_CONFIG=examples/assets/openassetio.toml."};
  row.examples = {"vela resolve bal:///demo/still-life",
                  "vela resolve bal:///demo/still-life?v=1 --json",
                  "vela info bal:///demo/still-life"};
  return row;
}

VerbRow selftestRow() {
  VerbRow row;
  row.name = "selftest";
  row.synopses = {"[--threads N]"};
  row.summary = "one number for the results of everything, the same on every machine.";
  row.brief = "one number for all results, the same on every machine";
  row.groups = {
      {"Options",
       {{"--threads", "N", "of the picture; 0: as many as the machine has. Changes no number"}}}};
  row.notes = {
      "Prints a hash for each kind of result, and one over all: rays of every lens, what rays meet "
      "by every structure, normals, built and refined meshes, samples, text, the pixels of a "
      "picture with all kinds of values. No file is read. docs/CONVENTIONS.md has the numbers of "
      "this version: others mean that results on this machine differ from those of all others."};
  row.examples = {"vela selftest", "vela selftest --threads 1"};
  return row;
}

VerbRow helpRow() {
  VerbRow row;
  row.name = "help";
  row.synopses = {"[VERB]", "--man [VERB]", "--completion SHELL", "--share FOLDER", "--messages"};
  row.summary = "says how a verb is used; also as man page and for shells.";
  row.brief = "how a verb is used; man pages, completion";
  row.arguments = {
      {"VERB", "", "the verb; without it, all of them", Offer::verbs, {}, false, true}};
  row.groups = {{"Options",
                 {{"--man", "", "as the source of a man page"},
                  {"--completion",
                   "SHELL",
                   "what completes a command line in bash, zsh or fish",
                   Offer::words,
                   {"bash", "zsh", "fish"}},
                  {"--share", "FOLDER",
                   "writes all man pages and completions below a folder, where /usr/share has "
                   "them",
                   Offer::folders},
                  {"--messages", "", "every error, with its exit code"}}}};
  row.examples = {"vela help render", "vela help --man pick", "vela help --completion bash"};
  return row;
}

}  // namespace

const OptionRow* VerbRow::find(const std::string& wanted) const {
  const std::string sought = "," + wanted + ",";
  for (const OptionRow& row : arguments)
    if (row.names == wanted) return &row;
  for (const OptionGroup& group : groups)
    for (const OptionRow& row : group.rows)
      if (("," + row.names + ",").find(sought) != std::string::npos) return &row;
  return nullptr;
}

std::vector<std::string> VerbRow::optionNames() const {
  std::vector<std::string> names;
  for (const OptionGroup& group : groups)
    for (const OptionRow& row : group.rows) names.push_back(row.key());
  return names;
}

const std::vector<VerbRow>& verbTable() {
  static const std::vector<VerbRow> table = {
      renderRow(), viewRow(),     submitRow(), pickRow(),    explainRow(),  infoRow(), meshRow(),
      makeRow(),   channelsRow(), selectRow(), resolveRow(), selftestRow(), helpRow()};
  return table;
}

const VerbRow* findVerb(const std::string& name) {
  const std::vector<VerbRow>& table = verbTable();
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const VerbRow& row) { return row.name == name; });
  return found == table.end() ? nullptr : &*found;
}

const OptionGroup& commonOptions() {
  static const OptionGroup group = {
      "Every verb",
      {{"--log-level",
        "LEVEL",
        "quiet, error, warning, message or verbose: what is said on standard error. Without it "
        "errors, warnings and notes are",
        Offer::words,
        {"quiet", "error", "warning", "message", "verbose"}},
       {"--log-file", "FILE",
        "the log's file; without it and HALDEN_LOG_FILE the log goes to standard error",
        Offer::files},
       {"--strict", "",
        "anything said besides the result, such as what is left out, makes the exit code 3"},
       {"-h,--help", "", "this text"}}};
  return group;
}

const std::vector<ExitRow>& exitTable() {
  static const std::vector<ExitRow> table = {{0, "done"},
                                             {1, "failed, or bad input"},
                                             {2, "wrong usage"},
                                             {3, "done, but something was said, with --strict"},
                                             {4, "partly done: some of several failed"},
                                             {5, "nothing found (pick, select)"},
                                             {130, "interrupted"}};
  return table;
}

const std::vector<VariableRow>& variableTable() {
  static const std::vector<VariableRow> table = {
      {"OPENASSETIO_DEFAULT_CONFIG",
       "the configuration of the asset manager. With it every FILE to read may be an asset "
       "reference."},
      {"VELA_PYTHON",
       "the Python interpreter of asset managers that are written in it, such as that of a virtual "
       "environment."},
      {"HALDEN_LOG_FILE, HALDEN_LOG_LEVEL", "as --log-file and --log-level."},
      {"OCIO", "an OpenColorIO configuration: images show colour through its default view."},
      {"NO_COLOR",
       "when it is set and not empty nothing is coloured on terminals, and --show draws with "
       "characters."},
      {"BROWSER", "what vela view --open starts instead of xdg-open."},
      {"COLUMNS", "how wide --show draws where standard output is no terminal: 80."}};
  return table;
}

}  // namespace command
