// Model units: what files state, how mixed files are brought into one unit,
// the warning for a part of an unlikely size, and the tool's --units.
#include <nlohmann/json.hpp>

#include "PackageUnit.h"
#include "TestSupport.h"
#include "ctr/drawing/ModelUnits.h"

namespace {

using contour::LengthUnit;
using ContourTool = ctr_test::ToolTest;

contour::ImportedModel load(const std::string& relative) {
    contour::ImportedModel model;
    std::string error;
    EXPECT_TRUE(contour::ImportModel(ctr_test::ModelPath(relative), model, error)) << error;
    return model;
}

TEST(ModelUnits, FilesStateTheirUnitAndMixedFilesLineUp) {
    // The same 47 x 30 x 12 mm block, in metres (glTF) and in inches (3MF).
    contour::ImportedModel metres = load("units/block_metres.gltf");
    contour::ImportedModel inches = load("units/block_inch.3mf");
    const contour::ImportedModel millimetres = load("cad/joint.obj");
    EXPECT_EQ(metres.statedUnit, LengthUnit::kMetre);
    EXPECT_EQ(inches.statedUnit, LengthUnit::kInch);
    EXPECT_FALSE(millimetres.statedUnit.has_value());

    const qe::qeVertexBuffer* const buffer = inches.meshes[0]->VBuffer;
    const Wm4::Vector3<float> stored = buffer->Position3(7);
    contour::ImportedModel forced = inches;
    EXPECT_EQ(contour::SettleUnits({&forced}, LengthUnit::kMillimetre), LengthUnit::kMillimetre);
    EXPECT_NEAR(contour::LargestExtent(forced.meshList()), 1.85, 1e-6);

    // The first model's unit wins; the inch block is scaled into metres by
    // its transformation and then has the metre block's box.
    EXPECT_EQ(contour::SettleUnits({&metres, &inches}, std::nullopt), LengthUnit::kMetre);
    EXPECT_NEAR(contour::LargestExtent(metres.meshList()), 0.047, 1e-7);
    EXPECT_NEAR(contour::LargestExtent(inches.meshList()), 1.85 * 0.0254, 1e-7);
    for (int i = 0; i < buffer->GetVertexQuantity(); ++i)
        for (int axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(inches.meshes[0]->World.ApplyForward(buffer->Position3(i), true)[axis],
                        buffer->Position3(i)[axis] * 0.0254, 1e-7);
    // Shared buffers stay as read: the model held elsewhere is not scaled.
    EXPECT_EQ(inches.meshes[0]->VBuffer, buffer);
    EXPECT_EQ(buffer->Position3(7), stored);
    EXPECT_NEAR(contour::LargestExtent(forced.meshList()), 1.85, 1e-6);
}

TEST(ModelUnits, APackageCutOrGarbledAnywhereIsReadOrHasNoUnit) {
    const std::string package = ctr_test::ReadFile(ctr_test::ModelPath("units/block_inch.3mf"));
    ASSERT_EQ(contour::importer::PackageModelUnit(package.data(), package.size()), LengthUnit::kInch);
    for (size_t cut = 0; cut < package.size(); ++cut) {
        // Exactly the bytes kept, so that a read past them is caught.
        const std::vector<char> bytes(package.begin(), package.begin() + static_cast<long>(cut));
        const auto unit = contour::importer::PackageModelUnit(bytes.data(), bytes.size());
        EXPECT_TRUE(!unit || *unit == LengthUnit::kInch) << cut;
    }
    for (size_t at = 0; at < package.size(); ++at)
        for (const unsigned char mask : {0x01, 0x80, 0xff}) {
            std::vector<char> bytes(package.begin(), package.end());
            bytes[at] = static_cast<char>(bytes[at] ^ mask);
            (void)contour::importer::PackageModelUnit(bytes.data(), bytes.size());
        }
}

TEST(ModelUnits, OnlyTheNamedAttributeOfTheNamedElementCounts) {
    using contour::importer::ElementAttribute;
    const std::string text =
        "<?xml version='1.0'?><!-- --><models unit=\"foot\"/>\n<model\n xmlns=\"x\" myunit=\"inch\" unit = 'micron'>";
    EXPECT_EQ(ElementAttribute(text, "model", "unit"), std::string("micron"));
    EXPECT_EQ(ElementAttribute(text, "model", "xmlns"), std::string("x"));
    EXPECT_FALSE(ElementAttribute(text, "model", "nit").has_value());
    EXPECT_FALSE(ElementAttribute("<model unit=\"inch", "model", "unit").has_value());
    EXPECT_FALSE(ElementAttribute("<model xmlns=\"x\">", "model", "unit").has_value());
}

TEST(ModelUnits, TheWarningNamesAUnitThatMakesThePartLikely) {
    const LengthUnit units[] = {LengthUnit::kMicrometre, LengthUnit::kMillimetre, LengthUnit::kCentimetre,
                                LengthUnit::kMetre,      LengthUnit::kInch,       LengthUnit::kFoot};
    for (const LengthUnit unit : units)
        for (double extent = 1e-6; extent < 1e10; extent *= 3.7) {
            const std::string warning = contour::UnitWarning(extent, unit);
            const bool likely = extent >= 1.0 && extent <= 1e5;
            ASSERT_EQ(warning.empty(), likely) << extent << " " << contour::LengthUnitName(unit);
            const size_t hint = warning.find("add --units ");
            if (hint == std::string::npos) continue;
            LengthUnit suggested;
            ASSERT_TRUE(contour::ParseLengthUnit(warning.substr(hint + 12), suggested)) << warning;
            const double reread = extent / contour::MillimetresPer(unit) * contour::MillimetresPer(suggested);
            EXPECT_TRUE(reread >= 1.0 && reread <= 1e5) << warning;
        }
    // The common mistakes get the answer one expects.
    EXPECT_EQ(contour::UnitWarning(0.047, LengthUnit::kMillimetre),
              "part is 0.047 mm across; if it is in metres, add --units m");
    EXPECT_EQ(contour::UnitWarning(743384.0, LengthUnit::kMetre),
              "part is 743384 mm across; if it is in millimetres, add --units mm");
}

#ifdef CONTOUR_TOOL
TEST_F(ContourTool, DrawsInTheStatedUnitUnlessTold) {
    const std::string block = model("units/block_metres.gltf");
    ASSERT_EQ(run(block + " --sheet -o sheet.svg --stats sheet.json"), 0) << errors;
    EXPECT_EQ(errors.find("warning"), std::string::npos) << errors;
    nlohmann::json record = nlohmann::json::parse(read("sheet.json"));
    EXPECT_EQ(record["units"], "m");
    EXPECT_EQ(record["millimetresPerUnit"], 1000.0);
    EXPECT_NEAR(record["extentMM"].get<double>(), 47.0, 1e-4);
    EXPECT_TRUE(record["unitWarning"].is_null());
    EXPECT_EQ(record["inputs"][0]["statedUnit"], "m");
    // The same block in inches comes out at the same scale.
    const std::string scale = record["sheet"]["scale"];
    ASSERT_EQ(run(model("units/block_inch.3mf") + " --sheet -q -o inch.svg --stats inch.json"), 0) << errors;
    EXPECT_EQ(nlohmann::json::parse(read("inch.json"))["sheet"]["scale"], scale);

    // Taken for millimetres, it is a speck: one warning line, also with -q,
    // and the record says the same.
    ASSERT_EQ(run(block + " --units mm --sheet -q -o speck.svg --stats speck.json"), 0) << errors;
    EXPECT_EQ(errors, "contour: warning: part is 0.047 mm across; if it is in metres, add --units m\n");
    record = nlohmann::json::parse(read("speck.json"));
    EXPECT_EQ(record["units"], "mm");
    EXPECT_EQ(record["unitWarning"], "part is 0.047 mm across; if it is in metres, add --units m");
    EXPECT_NE(record["sheet"]["scale"], scale);

    // A single view fills the page whatever the unit.
    ASSERT_EQ(run(block + " -q -o metres.svg"), 0) << errors;
    ASSERT_EQ(run(block + " -q --units ft -o feet.svg"), 0) << errors;
    EXPECT_EQ(read("metres.svg"), read("feet.svg"));

    // A batch takes the option too.
    ASSERT_EQ(run("batch " + block + " --out-dir parts --units mm -q"), 0) << errors;
    EXPECT_NE(errors.find("block_metres.gltf: warning: part is 0.047 mm across"), std::string::npos) << errors;
}

TEST_F(ContourTool, RefusesAnUnknownUnitAndAHostilePackage) {
    EXPECT_EQ(run(model("units/block_metres.gltf") + " --units furlong -o x.svg"), 2);
    EXPECT_NE(errors.find("--units: 'furlong' is not"), std::string::npos) << errors;
    // Half a package: one line, no drawing, no crash.
    EXPECT_EQ(run(model("malformed/truncated.3mf") + " -o x.svg"), 1);
    EXPECT_EQ(errors.rfind("contour: error: cannot read '", 0), 0u) << errors;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_FALSE(std::filesystem::exists(folder / "x.svg"));
}
#endif

}  // namespace
