/// \file
/// Every public header of libvela_picture. vela/vela.h has none of them: hosts of libvela alone
/// need neither OpenEXR nor libpng.
#pragma once

#include "vela/picture/Api.h"
#include "vela/picture/Cryptomatte.h"
#include "vela/picture/DisplayImage.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/FarmCost.h"
#include "vela/picture/FileFormat.h"
#include "vela/picture/JpegFile.h"
#include "vela/picture/LayerChoice.h"
#include "vela/picture/LayerTable.h"
#include "vela/picture/Picture.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/picture/PngFile.h"
#include "vela/picture/Tiles.h"
#include "vela/picture/ViewTransform.h"
