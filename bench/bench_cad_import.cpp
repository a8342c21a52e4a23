// Importing CAD parts (STEP through Open CASCADE): reading, tessellating,
// edges and surface records, all in the reader's child process, and the
// meshes built from what it hands back. The parts are built for the run: a
// plate with 100 through holes (106 faces), and an assembly of 192 blocks
// with rounded corners and 16 holes each (4,992 faces). One face with very
// many holes is the tessellator's slow case; an assembly of small parts is
// the common large file.
#include <BRepAlgoAPI_Cut.hxx>
#include <BRepBuilderAPI_Transform.hxx>
#include <BRepFilletAPI_MakeFillet.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_PrinterOStream.hxx>
#include <STEPControl_Writer.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_ListOfShape.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <gp_Ax2.hxx>
#include <string>

#include "BenchMain.h"
#include "ctr/drawing/ModelImport.h"

namespace {

// A plate of side 10 * holes and 10 thick with holes x holes holes of
// radius 3 on a pitch of 10: 6 + holes^2 faces.
TopoDS_Shape Plate(int holes) {
    const double side = 10.0 * holes;
    TopTools_ListOfShape plate, drills;
    plate.Append(BRepPrimAPI_MakeBox(side, side, 10.0).Shape());
    for (int i = 0; i < holes; ++i)
        for (int j = 0; j < holes; ++j)
            drills.Append(
                BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(5.0 + 10.0 * i, 5.0 + 10.0 * j, -1.0), gp::DZ()), 3.0, 12.0)
                    .Shape());
    BRepAlgoAPI_Cut cut;
    cut.SetArguments(plate);
    cut.SetTools(drills);
    cut.Build();
    return cut.Shape();
}

// Copies of a 4 x 4 holed plate with its vertical edges rounded (26
// faces), each with geometry of its own, as separate solids.
TopoDS_Shape Assembly(int copies) {
    const TopoDS_Shape plate = Plate(4);
    BRepFilletAPI_MakeFillet fillet(plate);
    for (TopExp_Explorer e(plate, TopAbs_EDGE); e.More(); e.Next()) {
        TopoDS_Vertex first, last;
        TopExp::Vertices(TopoDS::Edge(e.Current()), first, last);
        if (!first.IsSame(last) && std::abs(BRep_Tool::Pnt(first).Z() - BRep_Tool::Pnt(last).Z()) > 1.0)
            fillet.Add(2.0, TopoDS::Edge(e.Current()));
    }
    const TopoDS_Shape block = fillet.Shape();
    TopoDS_Compound all;
    BRep_Builder builder;
    builder.MakeCompound(all);
    for (int k = 0; k < copies; ++k) {
        gp_Trsf move;
        move.SetTranslation(gp_Vec(50.0 * (k % 16), 50.0 * (k / 16), 0.0));
        builder.Add(all, BRepBuilderAPI_Transform(block, move, true).Shape());
    }
    return all;
}

std::string Written(const std::string& name, bool assembly) {
    const std::filesystem::path path = std::filesystem::temp_directory_path() / ("bench_cad_" + name + ".step");
    if (std::filesystem::exists(path)) return path.string();
    Message::DefaultMessenger()->RemovePrinters(STANDARD_TYPE(Message_PrinterOStream));
    STEPControl_Writer writer;
    writer.Transfer(assembly ? Assembly(192) : Plate(10), STEPControl_AsIs);
    writer.Write(path.string().c_str());
    return path.string();
}

void ImportStep(benchmark::State& state, bool assembly) {
    const std::string path = Written(assembly ? "assembly_4992_faces" : "plate_106_faces", assembly);
    size_t triangles = 0, faces = 0, edges = 0;
    for (auto _ : state) {
        contour::ImportedModel model;
        std::string error;
        if (!contour::ImportModel(path, model, error)) {
            state.SkipWithError(error.c_str());
            return;
        }
        triangles = model.triangleCount;
        faces = model.cad->faces.size();
        edges = model.cad->sharpEdges + model.cad->tangentEdgeCount;
        benchmark::DoNotOptimize(model.meshes.data());
    }
    state.counters["triangles"] = static_cast<double>(triangles);
    state.counters["faces"] = static_cast<double>(faces);
    state.counters["edges"] = static_cast<double>(edges);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("cad_import/plate_106_faces", ImportStep, false)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(0.5);
    benchmark::RegisterBenchmark("cad_import/assembly_4992_faces", ImportStep, true)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(0.5);
    return bench::RunBenchmarks(argc, argv);
}
