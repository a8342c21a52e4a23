// CAD parts built here with Open CASCADE, written to STEP and IGES and read
// back through ImportModel: the meshes must close, every true edge must be
// there once, and the surfaces must come back as they were built.
#include <BRepAlgoAPI_Cut.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBuilderAPI_Transform.hxx>
#include <BRepFilletAPI_MakeFillet.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <IGESControl_Controller.hxx>
#include <IGESControl_Writer.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_PrinterOStream.hxx>
#include <STEPControl_Controller.hxx>
#include <STEPControl_Writer.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gp_Ax2.hxx>
#include <map>
#include <set>

#include "TestSupport.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/ModelUnits.h"

#ifdef CONTOUR_TOOL
#include <nlohmann/json.hpp>
#endif

namespace {

using contour::SurfaceKind;

// A file in this run's folder, removed at the end. Also quietens the
// writers, which report on the standard output.
std::filesystem::path Scratch(const std::string& name) {
    struct tFolder {
        std::filesystem::path path =
            std::filesystem::temp_directory_path() / ("contour_cad_" + std::to_string(::getpid()));
        ~tFolder() { std::filesystem::remove_all(path); }
    };
    static const tFolder folder;
    Message::DefaultMessenger()->RemovePrinters(STANDARD_TYPE(Message_PrinterOStream));
    std::filesystem::create_directories(folder.path);
    return folder.path / name;
}

// 100 x 60 x 20 with two through holes along z: radius 5 at (25, 30) and
// radius 8 at (70, 30).
TopoDS_Shape BoxWithHoles() {
    TopoDS_Shape part = BRepPrimAPI_MakeBox(100.0, 60.0, 20.0).Shape();
    for (const auto& [x, r] : {std::pair{25.0, 5.0}, std::pair{70.0, 8.0}})
        part = BRepAlgoAPI_Cut(part, BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(x, 30.0, -5.0), gp::DZ()), r, 30.0).Shape())
                   .Shape();
    return part;
}

// The part with the edges that run along z rounded.
TopoDS_Shape RoundVerticalEdges(const TopoDS_Shape& part, double radius) {
    BRepFilletAPI_MakeFillet fillet(part);
    for (TopExp_Explorer e(part, TopAbs_EDGE); e.More(); e.Next()) {
        TopoDS_Vertex first, last;
        TopExp::Vertices(TopoDS::Edge(e.Current()), first, last);
        if (!first.IsSame(last) && std::abs(BRep_Tool::Pnt(first).Z() - BRep_Tool::Pnt(last).Z()) > 1.0)
            fillet.Add(radius, TopoDS::Edge(e.Current()));
    }
    return fillet.Shape();
}

// A shaft along z: radius 10 up to 30, radius 6 from 30 to 50.
TopoDS_Shape SteppedShaft() {
    return BRepAlgoAPI_Fuse(BRepPrimAPI_MakeCylinder(10.0, 30.0).Shape(),
                            BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(0, 0, 30.0), gp::DZ()), 6.0, 20.0).Shape())
        .Shape();
}

// Two blocks of whole inches, the second turned a quarter about z and
// moved: an assembly of two solids placed by their locations.
TopoDS_Shape TwoBlocks() {
    TopoDS_Compound both;
    BRep_Builder builder;
    builder.MakeCompound(both);
    builder.Add(both, BRepPrimAPI_MakeBox(25.4, 50.8, 12.7).Shape());
    gp_Trsf turn;
    turn.SetRotation(gp_Ax1(gp::Origin(), gp::DZ()), M_PI / 2);
    gp_Trsf move;
    move.SetTranslation(gp_Vec(101.6, 0, 0));
    builder.Add(both,
                BRepBuilderAPI_Transform(BRepPrimAPI_MakeBox(25.4, 25.4, 25.4).Shape(), move * turn, false).Shape());
    return both;
}

std::string WriteStep(const TopoDS_Shape& shape, const std::string& name, const char* unit = "MM") {
    const std::string path = Scratch(name).string();
    // The writer's parameters exist once the STEP controller is set up.
    STEPControl_Controller::Init();
    EXPECT_TRUE(Interface_Static::SetCVal("write.step.unit", unit));
    STEPControl_Writer writer;
    EXPECT_EQ(writer.Transfer(shape, STEPControl_AsIs), IFSelect_RetDone);
    EXPECT_EQ(writer.Write(path.c_str()), IFSelect_RetDone);
    Interface_Static::SetCVal("write.step.unit", "MM");
    return path;
}

// As B-rep solids (mode 1), whose faces share their edges, or as separate
// trimmed surfaces (mode 0), as most IGES files hold them.
std::string WriteIges(const TopoDS_Shape& shape, const std::string& name, int mode = 1) {
    const std::string path = Scratch(name).string();
    IGESControl_Controller::Init();
    IGESControl_Writer writer("MM", mode);
    writer.AddShape(shape);
    writer.ComputeModel();
    EXPECT_TRUE(writer.Write(path.c_str()));
    return path;
}

using tPoint = std::array<float, 3>;
tPoint At(const qe::qeTriMesh& mesh, unsigned int v) {
    const Wm4::Vector3<float>& p = mesh.VBuffer->Position3(static_cast<int>(v));
    return {p[0], p[1], p[2]};
}

// Every edge of every triangle, taken by its end positions, is shared by
// exactly two triangles (no crack, sliver or T-junction), triangles wind
// out of the material (a positive volume) and agree with the surface
// normals at their corners.
void ExpectClosedFacingOut(const qe::qeTriMesh& mesh) {
    std::map<std::pair<tPoint, tPoint>, int> uses;
    const unsigned int* corners = mesh.IBuffer->GetData();
    double volume = 0.0;
    size_t against = 0;
    for (int c = 0; c < mesh.IBuffer->GetIndexQuantity(); c += 3) {
        Wm4::Vector3<double> p[3];
        for (int k = 0; k < 3; ++k) {
            tPoint a = At(mesh, corners[c + k]), b = At(mesh, corners[c + (k + 1) % 3]);
            p[k] = Wm4::Vector3<double>(a[0], a[1], a[2]);
            ++uses[{std::min(a, b), std::max(a, b)}];
        }
        const Wm4::Vector3<double> n = (p[1] - p[0]).Cross(p[2] - p[0]);
        volume += p[0].Dot(p[1].Cross(p[2])) / 6.0;
        for (int k = 0; k < 3; ++k) {
            const Wm4::Vector3<float>& m = mesh.VBuffer->Normal3(static_cast<int>(corners[c + k]));
            against += n.Dot(Wm4::Vector3<double>(m[0], m[1], m[2])) <= 0.0;
        }
    }
    size_t bad = 0;
    for (const auto& entry : uses) bad += entry.second != 2;
    EXPECT_EQ(bad, 0u) << "of " << uses.size() << " triangle edges";
    EXPECT_GT(volume, 0.0);
    EXPECT_EQ(against, 0u) << "corners whose normal points against their triangle";
}

struct tEdgeLines {
    std::vector<std::pair<tPoint, tPoint>> sharp, tangent;
    double length = 0.0;  // of both
};

tEdgeLines Lines(const contour::ImportedModel& model) {
    tEdgeLines lines;
    for (size_t m = 0; m < model.meshes.size(); ++m) {
        const qe::qeTriMesh& mesh = *model.meshes[m];
        const qe::qeIndexBuffer* outline = nullptr;
        for (int i = 0; i < mesh.GetMetadataQuantity(); ++i)
            if (mesh.GetMetadata(i)->GetMetadataTypeId() == qe::qeOutlineMetadata::MetadataTypeId)
                outline = static_cast<const qe::qeOutlineMetadata*>(mesh.GetMetadata(i))->getIBuffer();
        EXPECT_NE(outline, nullptr) << model.names[m];
        const qe::qeIndexBuffer* tangent = model.cad->tangentEdges[m];
        for (const auto& [buffer, into] : {std::pair{outline, &lines.sharp}, std::pair{tangent, &lines.tangent}}) {
            if (!buffer) continue;
            EXPECT_EQ(buffer->GetIndexBufferType(), qe::qeIndexBuffer::IBT_LINE_LIST);
            for (int i = 0; i + 1 < buffer->GetIndexQuantity(); i += 2) {
                const tPoint a = At(mesh, buffer->GetData()[i]), b = At(mesh, buffer->GetData()[i + 1]);
                into->push_back({a, b});
                lines.length += std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
            }
        }
    }
    return lines;
}

// The checks every part passes: closed meshes, edges each drawn once and as
// long as the true edges (less the chords' shortfall), one record per face.
void ExpectSound(const contour::ImportedModel& model, double trueEdgeLength) {
    ASSERT_TRUE(model.cad);
    for (const auto& mesh : model.meshes) ExpectClosedFacingOut(*mesh);
    const tEdgeLines lines = Lines(model);
    std::set<std::pair<tPoint, tPoint>> seen;
    for (const auto* list : {&lines.sharp, &lines.tangent})
        for (auto segment : *list) {
            if (segment.second < segment.first) std::swap(segment.first, segment.second);
            EXPECT_NE(segment.first, segment.second);
            EXPECT_TRUE(seen.insert(segment).second) << "a segment given twice";
        }
    EXPECT_LE(lines.length, trueEdgeLength * (1 + 1e-6));
    EXPECT_GE(lines.length, trueEdgeLength * (1 - 3e-3));
    size_t triangles = 0;
    for (const contour::AnalyticFace& face : model.cad->faces) triangles += face.triangleCount;
    EXPECT_EQ(triangles, model.triangleCount);
    EXPECT_TRUE(model.hasNormals);
}

std::multiset<double> Radii(const contour::ImportedModel& model, SurfaceKind kind) {
    std::multiset<double> radii;
    for (const contour::AnalyticFace& face : model.cad->faces)
        if (face.kind == kind) radii.insert(std::round(face.radius * 1e6) / 1e6);
    return radii;
}

TEST(CadImport, BoxWithHolesInStepAndIges) {
    const TopoDS_Shape part = BoxWithHoles();
    const double edges = 4 * (100 + 60 + 20) + 2 * 2 * M_PI * (5 + 8);
    for (const std::string& path :
         {WriteStep(part, "holes.step"), WriteIges(part, "holes.igs"), WriteIges(part, "holes_faces.igs", 0)}) {
        SCOPED_TRACE(path);
        contour::ImportedModel model;
        std::string error;
        ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
        ExpectSound(model, edges);
        ASSERT_EQ(model.meshes.size(), 1u);
        EXPECT_EQ(model.names[0], path.find("faces") == std::string::npos ? "solid 1" : "shell 1");
        EXPECT_EQ(model.statedUnit, contour::LengthUnit::kMillimetre);
        EXPECT_EQ(model.cad->sharpEdges, 16u);  // 12 of the box, 2 rims per hole
        EXPECT_EQ(model.cad->tangentEdgeCount, 0u);
        EXPECT_NEAR(model.cad->chordTolerance, 1e-3 * std::sqrt(100 * 100 + 60 * 60 + 20 * 20), 1e-3);
        EXPECT_EQ(Radii(model, SurfaceKind::kPlane).size(), 6u);
        // Trimmed-surface IGES carries the holes as general surfaces.
        const bool trimmed = path.find("faces") != std::string::npos;
        EXPECT_EQ(Radii(model, SurfaceKind::kCylinder),
                  (trimmed ? std::multiset<double>{} : std::multiset<double>{5.0, 8.0}));
        for (const contour::AnalyticFace& face : model.cad->faces) {
            if (face.kind != SurfaceKind::kCylinder) continue;
            const double x = face.radius == 5.0 ? 25.0 : 70.0;
            EXPECT_NEAR(std::abs(face.direction[2]), 1.0, 1e-12);
            EXPECT_NEAR(face.location[0], x, 1e-9);
            EXPECT_NEAR(face.location[1], 30.0, 1e-9);
            EXPECT_NEAR(face.boxMin[2], 0.0, 1e-6);
            EXPECT_NEAR(face.boxMax[2], 20.0, 1e-6);
            EXPECT_NEAR(face.boxMax[0] - face.boxMin[0], 2 * face.radius, model.cad->chordTolerance);
        }
        // The holes' lines are their rims, at the two faces of the block,
        // never a tessellation edge down the cylinder.
        size_t onHoles = 0;
        for (const auto& [a, b] : Lines(model).sharp)
            for (const tPoint& p : {a, b}) {
                const double r5 = std::hypot(p[0] - 25.0, p[1] - 30.0), r8 = std::hypot(p[0] - 70.0, p[1] - 30.0);
                if (std::abs(r5 - 5.0) > 1e-3 && std::abs(r8 - 8.0) > 1e-3) continue;
                ++onHoles;
                EXPECT_TRUE(std::abs(p[2]) < 1e-6f || std::abs(p[2] - 20.0f) < 1e-6f)
                    << p[0] << " " << p[1] << " " << p[2];
            }
        EXPECT_GE(onHoles, 4u * 32u * 2u);
    }
}

TEST(CadImport, FilletsMarkTheirTangentEdges) {
    const std::string path =
        WriteStep(RoundVerticalEdges(BRepPrimAPI_MakeBox(50.0, 40.0, 30.0).Shape(), 5.0), "fillet.step");
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
    // Top and bottom: 4 straight edges and 4 arcs each; up the sides, the
    // 8 lines where the rounds meet the flat faces.
    ExpectSound(model, 2 * (2 * (50 - 10) + 2 * (40 - 10)) + 8 * (M_PI / 2 * 5) + 8 * 30);
    EXPECT_EQ(model.cad->sharpEdges, 16u);
    EXPECT_EQ(model.cad->tangentEdgeCount, 8u);
    EXPECT_EQ(Radii(model, SurfaceKind::kCylinder), (std::multiset<double>{5.0, 5.0, 5.0, 5.0}));
    const tEdgeLines lines = Lines(model);
    for (const auto& [a, b] : lines.tangent) {
        EXPECT_EQ(a[0], b[0]);  // vertical lines
        EXPECT_EQ(a[1], b[1]);
    }
    EXPECT_FALSE(lines.tangent.empty());
}

// A part drawn from its B-rep and from the same triangles read as a plain
// mesh with the surfaces' normals: the mesh finds its creases where the
// normals break, which are the sharp B-rep edges, so both draw the same
// lines, hidden the same way.
TEST(CadImport, DrawsAsItsMeshWithSurfaceNormals) {
    const std::pair<TopoDS_Shape, const char*> parts[] = {
        {BoxWithHoles(), "holes_mesh.step"},
        {RoundVerticalEdges(BRepPrimAPI_MakeBox(80.0, 50.0, 30.0).Shape(), 6.0), "rounded_mesh.step"},
        {SteppedShaft(), "shaft_mesh.step"}};
    for (const auto& [shape, name] : parts) {
        SCOPED_TRACE(name);
        contour::ImportedModel cad, mesh;
        std::string error;
        ASSERT_TRUE(contour::ImportModel(WriteStep(shape, name), cad, error)) << error;
        for (const qe::qePointer<qe::qeTriMesh>& part : cad.meshes) {
            const qe::qeVertexBuffer& vertices = *part->VBuffer;
            std::vector<float> positions, normals;
            for (int v = 0; v < vertices.GetVertexQuantity(); ++v)
                for (int axis = 0; axis < 3; ++axis) {
                    positions.push_back(vertices.Position3(v)[axis]);
                    normals.push_back(vertices.Normal3(v)[axis]);
                }
            contour::MeshArrays arrays;
            arrays.positions = positions.data();
            arrays.vertexCount = static_cast<size_t>(vertices.GetVertexQuantity());
            arrays.corners = part->IBuffer->GetData();
            arrays.triangleCount = static_cast<size_t>(part->IBuffer->GetIndexQuantity() / 3);
            arrays.normals = normals.data();
            ASSERT_TRUE(contour::AddMeshArrays(arrays, "mesh", mesh, error)) << error;
        }
        contour::DrawingOptions options;
        options.hiddenLines = true;
        contour::DrawingStats fromCad, fromMesh;
        ASSERT_TRUE(contour::DrawToSVG(cad.meshList(), {}, options, Scratch("cad.svg").string(), fromCad, error))
            << error;
        ASSERT_TRUE(contour::DrawToSVG(mesh.meshList(), {}, options, Scratch("mesh.svg").string(), fromMesh, error))
            << error;
        EXPECT_GT(fromCad.crease.inkMM, 0.0);
        for (const auto& [a, b] : {std::pair{fromCad.crease.inkMM, fromMesh.crease.inkMM},
                                   std::pair{fromCad.silhouette.inkMM, fromMesh.silhouette.inkMM},
                                   std::pair{fromCad.hidden.inkMM, fromMesh.hidden.inkMM}})
            EXPECT_NEAR(a, b, 1e-9 * std::max(1.0, a));
        EXPECT_EQ(fromCad.crease.beforeHiding(), fromMesh.crease.beforeHiding());
    }
}

TEST(CadImport, SteppedShaftAndBrep) {
    const TopoDS_Shape shaft = SteppedShaft();
    const std::string brep = Scratch("shaft.brep").string();
    ASSERT_TRUE(BRepTools::Write(shaft, brep.c_str()));
    for (const std::string& path : {WriteStep(shaft, "shaft.stp"), brep}) {
        SCOPED_TRACE(path);
        contour::ImportedModel model;
        std::string error;
        ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
        ExpectSound(model, 2 * M_PI * (10 + 10 + 6 + 6));
        EXPECT_EQ(model.cad->sharpEdges, 4u);
        EXPECT_EQ(Radii(model, SurfaceKind::kCylinder), (std::multiset<double>{6.0, 10.0}));
        for (const contour::AnalyticFace& face : model.cad->faces)
            if (face.kind == SurfaceKind::kCylinder) {
                EXPECT_NEAR(std::hypot(face.location[0], face.location[1]), 0.0, 1e-9);
                EXPECT_NEAR(std::abs(face.direction[2]), 1.0, 1e-12);
            }
        EXPECT_EQ(model.cad->format, path == brep ? "BREP" : "STEP");
        EXPECT_EQ(model.statedUnit.has_value(), path != brep);
        // A finer tolerance, a finer tessellation, as sound.
        contour::ImportOptions options;
        options.chordTolerance = 0.001;
        contour::ImportedModel fine;
        ASSERT_TRUE(contour::ImportModel(path, fine, error, options)) << error;
        EXPECT_EQ(fine.cad->chordTolerance, 0.001);
        EXPECT_GT(fine.triangleCount, 4 * model.triangleCount);
        ExpectSound(fine, 2 * M_PI * (10 + 10 + 6 + 6));
    }
}

TEST(CadImport, InchAssemblyComesBackInMillimetres) {
    const std::string path = WriteStep(TwoBlocks(), "blocks_inch.step", "INCH");
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
    ExpectSound(model, 4 * (25.4 + 50.8 + 12.7) + 12 * 25.4);
    EXPECT_EQ(model.cad->fileUnit, "inch");
    EXPECT_EQ(model.statedUnit, contour::LengthUnit::kMillimetre);
    ASSERT_EQ(model.meshes.size(), 2u);
    EXPECT_EQ(model.names, (std::vector<std::string>{"solid 1", "solid 2"}));
    // The second block, turned a quarter about z and moved 4 inches along x,
    // spans x from 76.2 to 101.6.
    const qe::qeBBox& second = model.meshes[1]->ModelBound;
    EXPECT_NEAR(second.Min[0], 76.2, 1e-4);
    EXPECT_NEAR(second.Max[0], 101.6, 1e-4);
    EXPECT_NEAR(model.meshes[0]->ModelBound.Max[1], 50.8, 1e-4);
    // Scaled into another drawing's unit, the meshes keep their outline.
    const size_t segments = Lines(model).sharp.size();
    contour::ScaleModel(model, 1 / 25.4);
    EXPECT_EQ(Lines(model).sharp.size(), segments);
}

TEST(CadImport, MalformedFilesFailWithOneLine) {
    for (const char* file : {"malformed/truncated.step", "malformed/wrong_header.step", "malformed/no_shapes.step",
                             "malformed/garbage.igs"}) {
        contour::ImportedModel model;
        std::string error;
        EXPECT_FALSE(contour::ImportModel(ctr_test::ModelPath(file), model, error)) << file;
        EXPECT_NE(error.find("cannot read"), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        EXPECT_TRUE(model.meshes.empty());
    }
}

#ifdef CONTOUR_TOOL
class CadTool : public ctr_test::ToolTest {};

// The tool draws a STEP part on a sheet at a true scale, with the outline
// (and nothing else) as its creases: in each of the four views exactly the
// segments of the part's true edges.
TEST_F(CadTool, DrawsAStepSheetInTrueMillimetres) {
    const std::string path = (folder / "holes.step").string();
    std::filesystem::copy_file(WriteStep(BoxWithHoles(), "tool_holes.step"), path);
    ASSERT_EQ(run("holes.step --sheet -q -o sheet.svg --stats sheet.json"), 0) << errors;
    EXPECT_EQ(errors, "");
    const nlohmann::json record = nlohmann::json::parse(read("sheet.json"));
    EXPECT_EQ(record["units"], "mm");
    EXPECT_EQ(record["sheet"]["scale"], "1:1");
    EXPECT_NEAR(record["extentMM"].get<double>(), 100.0, 1e-4);
    const nlohmann::json& cad = record["inputs"][0]["cad"];
    EXPECT_EQ(cad["fileUnit"], "millimetre");
    EXPECT_EQ(cad["surfaces"]["plane"], 6);
    EXPECT_EQ(cad["surfaces"]["cylinder"], 2);
    EXPECT_EQ(cad["edges"]["drawn"], 16);
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
    EXPECT_EQ(record["segments"]["crease"]["found"], 4 * Lines(model).sharp.size());
    EXPECT_GT(record["segments"]["crease"]["visiblePieces"], 0);

    // A malformed file: one line, exit status 1. A file read in part is
    // drawn, and says what it left out.
    EXPECT_EQ(run(ctr_test::ToolTest::model("malformed/truncated.step") + " -o t.svg"), 1);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_EQ(run(ctr_test::ToolTest::model("malformed/one_root_broken.step") + " -q -o b.svg"), 0);
    EXPECT_NE(errors.find("warning: read 1 of 2 roots; 1 failed\n"), std::string::npos) << errors;
}
#endif

}  // namespace

// Writes the files the repository carries: cad-step/plate.step, and
// malformed/one_root_broken.step, two parts as two roots of which the
// second's solid is pointed at a point instead of its shell. Run with
// --gtest_also_run_disabled_tests to make them again.
TEST(CadImport, DISABLED_WriteCarriedFiles) {
    STEPControl_Writer writer;
    writer.Transfer(BRepPrimAPI_MakeBox(10.0, 10.0, 10.0).Shape(), STEPControl_AsIs);
    writer.Transfer(BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(30, 0, 0), gp::DZ()), 5.0, 10.0).Shape(), STEPControl_AsIs);
    const std::string twoRoots = Scratch("two_roots.step").string();
    writer.Write(twoRoots.c_str());
    std::string text = ctr_test::ReadFile(twoRoots);
    const std::string shell = "#359 = MANIFOLD_SOLID_BREP('',#360);";
    ASSERT_NE(text.find(shell), std::string::npos);
    text.replace(text.find(shell), shell.size(), "#359 = MANIFOLD_SOLID_BREP('',#367);");
    std::ofstream(std::string(CTR_TEST_MODELS_DIR) + "/malformed/one_root_broken.step", std::ios::binary) << text;

    const std::string written = WriteStep(RoundVerticalEdges(BoxWithHoles(), 6.0), "plate.step");
    std::filesystem::copy_file(written, std::string(CTR_TEST_MODELS_DIR) + "/cad-step/plate.step",
                               std::filesystem::copy_options::overwrite_existing);
}
