// A scene made in code, so that the tool can show what it does without a
// model file.
#ifndef CTR_DRAWING_DEMOSCENE_H
#define CTR_DRAWING_DEMOSCENE_H

#include "ctr/drawing/ModelImport.h"

namespace contour {

// A flat-shaded box, a cylinder with smooth sides and flat caps standing in
// it, and a hexagonal prism behind them whose foot the box hides. Y is up;
// the cylinder and the prism are placed by their world transformations.
ImportedModel MakeDemoScene();

}  // namespace contour

#endif
