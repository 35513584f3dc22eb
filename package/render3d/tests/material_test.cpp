// Materials without an engine: render flags, texture sides and blur steps,
// the light vector and light maps against an independent computation, the
// kernels' SIMD versions against the scalar reference, persistence (the key
// order, both store kinds, old records), input slots and the editor model.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/cpu.h"
#include "framework/config_data.h"
#include "framework/settings_document.h"
#include "framework/xml_document.h"
#include "orrery/services.h"
#include "render3d/material.h"
#include "render3d/material_dialog.h"
#include "render3d/material_kernels.h"
#include "render3d/material_manager.h"
#include "render3d/texture_build.h"
#include "light_map_reference.h"

namespace {

using namespace nimbo;
using nimbo::testing::IndependentLightMap;

TEST(MaterialTest, DefaultsAndRenderFlags) {
  const Material m = DefaultMaterial();
  EXPECT_EQ(m.tex[0].base_clr, 0xB0B0B0);
  EXPECT_EQ(m.tex[1].spec_clr, 0x806060);
  EXPECT_EQ(m.tex[1].diff_clr, 0x202020);
  EXPECT_FLOAT_EQ(m.tex[1].l_y, -0.3f);
  EXPECT_EQ(m.tex[0].w, 64);
  EXPECT_EQ(m.tex[0].texmode, 1);
  EXPECT_EQ(m.trans, -1);
  EXPECT_STREQ(m.name, "");

  struct Case {
    int usesectex, sectype, trans, wire, twosided, flags;
  };
  const Case cases[] = {
      {0, 0, -1, 0, 0, 0},    {0, 0, -1, 1, 0, 16},  {0, 0, 0, 1, 0, 1},    {0, 0, 1, 0, 0, 2},
      {0, 0, 5, 1, 0, 0},     {1, 0, 0, 0, 0, 4},    {1, 1, 1, 1, 0, 8},    {1, 2, -1, 1, 0, 32},
      {1, 7, 0, 0, 0, 0},     {0, 0, 0, 0, 1, 0x101}, {1, 2, 0, 0, 1, 0x120}, {0, 0, -1, 0, 1, 0x100}};
  for (const Case& c : cases) {
    Material x = DefaultMaterial();
    x.usesectex = c.usesectex, x.sectype = c.sectype, x.trans = c.trans, x.wire = c.wire, x.twosided = c.twosided;
    EXPECT_EQ(GetMaterialFlags(x), c.flags) << c.usesectex << c.sectype << c.trans << c.wire << c.twosided;
  }
}

TEST(MaterialTest, TextureSidesAndBlurSteps) {
  EXPECT_EQ(TextureSide(1000), 1024);
  EXPECT_EQ(TextureSide(1), 2);
  EXPECT_EQ(TextureSide(3000), 1024);
  EXPECT_EQ(TextureSide(320), 512);
  EXPECT_EQ(TextureSide(240), 256);
  EXPECT_EQ(TextureSide(64), 64);
  EXPECT_EQ(TextureSide(65), 128);
  EXPECT_EQ(TextureSide(-4), 2);
  EXPECT_EQ(PictureSide(0, 320), 320);
  EXPECT_EQ(PictureSide(-1, 240), 240);
  EXPECT_EQ(PictureSide(3000, 240), 1024);
  EXPECT_EQ(PictureSide(0, 0), 1);

  EXPECT_EQ(BlurPassCount(0.0f), 0);
  EXPECT_EQ(BlurPassCount(0.07f), 1);
  EXPECT_EQ(BlurPassCount(0.1f), 2);
  EXPECT_EQ(BlurPassCount(0.14f), 2);
  EXPECT_EQ(BlurPassCount(0.3f), 5);
  EXPECT_EQ(BlurPassCount(-1.0f), 0);
  EXPECT_EQ(BlurPassCount(std::nanf("")), 0);
  EXPECT_EQ(BlurPassCount(INFINITY), kMaxBlurPasses);
}

TEST(MaterialTest, BlurPassWeightsAndBorders) {
  // One white dot in a 5x4 picture inside an 8-wide buffer; the rest black.
  std::vector<uint32_t> pixels(8 * 4, 0), scratch;
  pixels[1 * 8 + 2] = 0x00FFFFFF;
  pixels[3 * 8 + 0] = 0x00102030;  // a border pixel keeps its value
  for (const MaterialKernels* k : {&MaterialKernelsScalar(), &MaterialKernelsBest()}) {
    std::vector<uint32_t> p = pixels;
    BlurPicture(p.data(), 8, 5, 4, 1, *k, scratch);
    auto grey = [](uint32_t v) { return v * 0x010101u; };
    EXPECT_EQ(p[3 * 8 + 0], 0x00102030u);
    EXPECT_EQ(p[1 * 8 + 2], grey(255 * 4 / 16));
    EXPECT_EQ(p[1 * 8 + 1], grey(255 * 2 / 16));
    EXPECT_EQ(p[2 * 8 + 3], grey(255 / 16));
    EXPECT_EQ(p[2 * 8 + 2], grey(255 * 2 / 16));
    EXPECT_EQ(p[0 * 8 + 2], 0u) << "border row stays";
    EXPECT_EQ(p[1 * 8 + 5], 0u) << "outside the picture stays";
    // A second pass reads the first one's result: the centre gets
    // 4*63 + 2*(31 + 31 + 31) + 15 + 15 (its border neighbours stayed 0).
    BlurPicture(p.data(), 8, 5, 4, 1, *k, scratch);
    EXPECT_EQ(p[1 * 8 + 2], grey(468 / 16));
  }
}

TEST(MaterialTest, LightVector) {
  const LightVec a = LightVector(1.0f, 1.0f);
  EXPECT_NEAR(a.x, 0.7071f, 1e-4);
  EXPECT_NEAR(a.y, 0.7071f, 1e-4);
  EXPECT_EQ(a.z, 0.0f);
  const LightVec b = LightVector(0.6f, 0.0f);
  EXPECT_NEAR(b.z, 0.8f, 1e-6);
  const LightVec c = LightVector(0.0f, 0.0f);
  EXPECT_EQ(c.z, 1.0f);
}

TEST(MaterialTest, LightMapMatchesTheSphereGeometry) {
  TextureLayer layers[3] = {DefaultMaterial().tex[0], DefaultMaterial().tex[1], DefaultMaterial().tex[0]};
  layers[2].l_x = 1.0f, layers[2].l_y = 1.0f, layers[2].diff_clr = 0xFF8000, layers[2].spec_clr = 0x0000FF,
  layers[2].base_clr = 0x101010, layers[2].spec_power = 1, layers[2].diff = 0;
  for (const TextureLayer& t : layers) {
    const int w = 37, h = 23;
    std::vector<uint32_t> map(size_t(w * h));
    BuildLightMap(map.data(), w, h, t, MaterialKernelsScalar());
    int off = 0, lit = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const uint32_t got = map[size_t(y * w + x)], want = IndependentLightMap(x, y, w, h, t);
        lit += got != uint32_t(t.base_clr);
        for (int s = 0; s < 24; s += 8) off += std::abs(int((got >> s) & 0xFF) - int((want >> s) & 0xFF)) > 1;
      }
    EXPECT_EQ(off, 0) << "channels more than one step from the geometry";
    EXPECT_GT(lit, w * h / 4) << "the sphere lights a good part of the map";
  }
}

TEST(MaterialTest, LightMapApplication) {
  const uint32_t tex = 0xFF644B32;  // R 100, G 75, B 50, alpha set
  struct Case {
    uint32_t light, want;
  };
  const Case cases[] = {{0x808080, 0x644B32},   // 128 keeps
                        {0x000000, 0x000000},   // 2L - 256 = -256 clamps
                        {0xFFFFFF, 0xFFFFFF},   // +254 saturates
                        {0x7F8164, 0x624D00}};  // 127: -2; 129: +2; 100: 50 - 56 < 0
  for (const MaterialKernels* k : {&MaterialKernelsScalar(), &MaterialKernelsBest()})
    for (const Case& c : cases) {
      std::vector<uint32_t> t(9, tex), l(9, c.light);
      k->apply_light_map(l.data(), t.data(), t.size());
      for (uint32_t v : t) EXPECT_EQ(v, c.want) << k->name << " light " << std::hex << c.light;
    }
}

// The SIMD kernels against the scalar reference on random data at odd
// widths and unaligned starts.
TEST(MaterialTest, SimdKernelsEqualTheScalarReference) {
  std::vector<const MaterialKernels*> sets = {&MaterialKernelsSse2()};
  if (CpuHasAvx2()) sets.push_back(&MaterialKernelsAvx2());
  const MaterialKernels& ref = MaterialKernelsScalar();
  std::mt19937 rng(5);
  auto random_pixels = [&](size_t n) {
    std::vector<uint32_t> v(n);
    for (uint32_t& p : v) p = rng();
    return v;
  };
  for (const MaterialKernels* k : sets) {
    for (size_t count : {1u, 2u, 3u, 5u, 8u, 13u, 31u, 67u}) {
      for (size_t offset : {0u, 1u, 3u}) {
        const std::vector<uint32_t> light = random_pixels(count + offset), tex = random_pixels(count + offset);
        std::vector<uint32_t> a = tex, b = tex;
        ref.apply_light_map(light.data() + offset, a.data() + offset, count);
        k->apply_light_map(light.data() + offset, b.data() + offset, count);
        EXPECT_EQ(a, b) << k->name << " apply " << count;
        const std::vector<uint32_t> rows = random_pixels(3 * (count + offset));
        std::vector<uint32_t> da(count + offset, 7), db = da;
        const uint32_t* r = rows.data() + offset;
        ref.blur_row(r, r + count, r + 2 * count, da.data() + offset, count);
        k->blur_row(r, r + count, r + 2 * count, db.data() + offset, count);
        EXPECT_EQ(da, db) << k->name << " blur " << count;
      }
    }
    for (int trial = 0; trial < 60; ++trial) {
      const int w = 1 + int(rng() % 70), h = 1 + int(rng() % 9);
      SphereLight light;
      const float lx = float(int(rng() % 401) - 200) / 100.0f, ly = float(int(rng() % 401) - 200) / 100.0f;
      light.dir = LightVector(lx, ly);
      light.color = int32_t(rng() & 0xFFFFFF);
      light.squarings = int32_t(rng() % 9) - 1;
      light.specular = (trial & 1) != 0;
      for (int y = 0; y < h; ++y) {
        std::vector<uint32_t> a = random_pixels(size_t(w)), b = a;
        ref.sphere_light_row(a.data(), w, h, y, light);
        k->sphere_light_row(b.data(), w, h, y, light);
        ASSERT_EQ(a, b) << k->name << " sphere w " << w << " h " << h << " y " << y << " l " << lx << "," << ly;
      }
    }
    // A light direction that is not a number lights nothing in either.
    SphereLight nan_light;
    nan_light.dir = LightVector(std::nanf(""), 0.0f);
    nan_light.color = 0xFFFFFF;
    std::vector<uint32_t> a(21, 0x01020304), b = a;
    ref.sphere_light_row(a.data(), 21, 21, 10, nan_light);
    k->sphere_light_row(b.data(), 21, 21, 10, nan_light);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a[10], 0x01020304u);
  }
}

// ---- persistence -------------------------------------------------------------------

std::vector<std::string> KeysOf(const std::string& xml) {
  std::vector<std::string> keys;
  const std::string open = "name=\"";
  for (size_t at = xml.find(open); at != std::string::npos; at = xml.find(open, at)) {
    at += open.size();
    const size_t end = xml.find('"', at);
    keys.push_back(xml.substr(at, end - at));
  }
  return keys;
}

std::vector<std::string> ExpectedMaterialKeys(const std::string& p, bool path0, bool path1) {
  std::vector<std::string> k = {p + "matusesectex", p + "matsectype",     p + "mattrans", p + "matwire",
                                p + "matinvert_tex2", p + "matname", p + "mattwosided"};
  for (int i = 0; i < 2; ++i) {
    const std::string t = p + "mattex" + std::to_string(i);
    // The layer's keys as the store formats them ("mattex%i" + suffix).
    for (const char* f : {"mattex%itexmode", "mattex%ibitmapname", "mattex%iblur", "mattex%ibase_clr",
                          "mattex%ispec_clr", "mattex%ispec", "mattex%idiff_clr", "mattex%idiff", "mattex%il_x",
                          "mattex%il_y", "mattex%ifreeze", "mattex%iw", "mattex%ih"})
      k.push_back(t + std::string(f).substr(8));
    if (i == 0 ? path0 : path1) k.push_back(t + "bitmapnamepath");
  }
  k.push_back(p + "nbMatManagerVERSION");
  return k;
}

Material Edited() {
  Material m = DefaultMaterial();
  m.usesectex = 1, m.sectype = 2, m.trans = 1, m.wire = 1, m.invert_tex2 = 1, m.twosided = 1;
  SetFixedText(m.name, "chrome");
  SetFixedText(m.tex[1].bitmapname, "/pictures/a & b.png");
  m.tex[0].blur = 0.1234567f, m.tex[0].l_x = -0.25f, m.tex[0].w = 0, m.tex[0].h = 100, m.tex[0].texmode = 0;
  m.tex[1].spec_power = 9, m.tex[1].diff_clr = 0x123456, m.tex[1].freeze = 1;
  return m;
}

TEST(MaterialStoreTest, KeysInTheirOrderAndTheSameForBothStoreKinds) {
  const Material m = Edited();
  SettingsDocument doc;  // through the SDK's store interface
  doc.BeginWriting();
  nbMatManager::SaveMaterial(static_cast<orrery::ConfigStore&>(doc), m, "fx");
  XmlDocument xml;  // the framework's own store
  ConfigData data(&xml);
  data.BeginWriting();
  nbMatManager::SaveMaterial(data, m, "fx");
  EXPECT_EQ(KeysOf(doc.Text()), ExpectedMaterialKeys("fx", false, true));
  EXPECT_EQ(doc.Text(), xml.GetDoc());
  EXPECT_NE(doc.Text().find("name=\"fxmattex1bitmapnamepath\" type=\"path\""), std::string::npos);
  EXPECT_NE(doc.Text().find(">0.123457<"), std::string::npos);

  // Everything comes back (floats to the store's six decimals).
  for (int kind = 0; kind < 2; ++kind) {
    Material back = DefaultMaterial();
    if (kind == 0)
      nbMatManager::LoadMaterial(static_cast<orrery::ConfigStore&>(doc), back, "fx");
    else
      nbMatManager::LoadMaterial(data, back, "fx");
    EXPECT_EQ(back.sectype, 2);
    EXPECT_EQ(back.twosided, 1);
    EXPECT_STREQ(back.name, "chrome");
    EXPECT_STREQ(back.tex[1].bitmapname, "/pictures/a & b.png");
    EXPECT_STREQ(back.tex[0].bitmapname, "");
    EXPECT_FLOAT_EQ(back.tex[0].blur, 0.123457f);
    EXPECT_FLOAT_EQ(back.tex[0].l_x, -0.25f);
    EXPECT_EQ(back.tex[0].texmode, 0);
    EXPECT_EQ(back.tex[0].w, 0);
    EXPECT_EQ(back.tex[1].spec_power, 9);
    EXPECT_EQ(back.tex[1].diff_clr, 0x123456);
    EXPECT_EQ(back.tex[1].freeze, 1);
  }
}

TEST(MaterialStoreTest, SaveAllWritesMaterialsThenSlots) {
  nbMatManager mats(2, "");
  mats.SetMaterialCount(2);
  ASSERT_TRUE(mats.AssignInput(1, 0, 1));
  SettingsDocument doc;
  doc.BeginWriting();
  mats.SaveAll(doc, "");
  std::vector<std::string> want = ExpectedMaterialKeys("mat0", false, false);
  for (const std::string& k : ExpectedMaterialKeys("mat1", false, false)) want.push_back(k);
  for (const char* k : {"input0mat", "input0t", "input0used", "input1mat", "input1t", "input1used"}) want.push_back(k);
  EXPECT_EQ(KeysOf(doc.Text()), want);

  nbMatManager back(2, "");
  back.SetMaterialCount(2);
  back.LoadAll(doc, "");
  EXPECT_EQ(back.GetInputSlot(0).mat, 1);
  EXPECT_EQ(back.GetInputSlot(0).used, 1);
  EXPECT_EQ(back.GetInputSlot(1).mat, -1);
}

TEST(MaterialStoreTest, OldRecordsLoadAndMissingKeysKeepValues) {
  // A record from before the version key, with only some keys, and the plain
  // picture key that is never read.
  SettingsDocument doc;
  doc.BeginWriting();
  doc.SetInt("mat0mattrans", 0);
  doc.SetInt("mat0mattex1spec", 7);
  doc.SetString("mat0mattex0bitmapname", "old.png");
  Material m = DefaultMaterial();
  m.tex[0].engine_texture = 5, m.tex[0].pixel_buffer = 9, m.tex[0].input = 1, m.tex[1].input = 1;
  SetFixedText(m.tex[0].bitmapname, "from before");
  nbMatManager::LoadMaterial(doc, m, "mat0");
  EXPECT_EQ(m.trans, 0);
  EXPECT_EQ(m.tex[1].spec_power, 7);
  EXPECT_EQ(m.tex[0].base_clr, 0xB0B0B0);
  EXPECT_STREQ(m.tex[0].bitmapname, "") << "the picture is read from the path key only";
  EXPECT_EQ(m.tex[0].engine_texture, 0);
  EXPECT_EQ(m.tex[0].pixel_buffer, 0u);
  EXPECT_EQ(m.tex[0].input + m.tex[1].input, 0);
}

// Every key SaveAll writes, materials and slots alike, given a value no
// default has: loaded and saved again, the document comes back byte for
// byte. A key written but not read (or read into another field) shows as a
// value that went back to what the record held before.
TEST(MaterialStoreTest, EveryKeySurvivesASaveAndLoadRoundTrip) {
  nbMatManager mats(2, "fx");
  mats.SetMaterialCount(2);
  SettingsDocument shape;
  shape.BeginWriting();
  mats.SaveAll(shape, "fx");

  // The same keys in the same order, each with a value of its own; a
  // layer's picture goes into both of its keys (the plain one is written
  // from the path key, the only one read, which ends the layer's keys).
  SettingsDocument given;
  given.BeginWriting();
  int32_t n = 0;
  size_t written = 0;
  std::string pending_path;  // the layer whose picture is set, until its path key is written
  for (const std::string& key : KeysOf(shape.Text())) {
    if (key.ends_with("bitmapnamepath")) continue;  // written after the plain key below
    ++n;
    const std::string type_at = "name=\"" + key + "\" type=\"";
    const size_t at = shape.Text().find(type_at);
    ASSERT_NE(at, std::string::npos) << key;
    const std::string type = shape.Text().substr(at + type_at.size(), 3);
    const bool picture = key.find("bitmapname") != std::string::npos;
    const std::string layer = picture ? key.substr(0, key.find("bitmapname")) : "";
    if (key.ends_with("nbMatManagerVERSION")) given.SetInt(key.c_str(), 1);
    else if (picture) given.SetString(key.c_str(), ("/pictures/" + layer + ".png").c_str());
    else if (type == "int") given.SetInt(key.c_str(), 1000 + n);
    else if (type == "flo") given.SetFloat(key.c_str(), float(n) + 0.5f);
    else if (type == "str") given.SetString(key.c_str(), ("name " + std::to_string(n)).c_str());
    else ADD_FAILURE() << key << " has type " << type;
    ++written;
    if (picture) pending_path = layer;
    if (!pending_path.empty() && key == pending_path + "h") {  // a layer's path key ends it
      given.SetPath((pending_path + "bitmapnamepath").c_str(), ("/pictures/" + pending_path + ".png").c_str());
      pending_path.clear();
      ++written;
    }
  }
  ASSERT_EQ(written, KeysOf(given.Text()).size());

  nbMatManager back(2, "fx");
  back.SetMaterialCount(2);
  back.LoadAll(given, "fx");
  SettingsDocument again;
  again.BeginWriting();
  back.SaveAll(again, "fx");
  EXPECT_EQ(again.Text(), given.Text());
  EXPECT_EQ(back.GetInputSlot(1).mat, given.GetInt("fxinput1mat", -1));
  EXPECT_STREQ(back.GetMaterial(1).tex[1].bitmapname, "/pictures/fxmat1mattex1.png");
}

// ---- input slots -------------------------------------------------------------------

// A fresh effect unbinds every slot: the names, the next binding and what
// SaveAll stores are those of a manager that never bound one.
TEST(MaterialSlotsTest, ResetInputSlotsGivesAFreshManagersSlots) {
  nbMatManager mats(3, "");
  mats.SetMaterialCount(2);
  ASSERT_TRUE(mats.AssignInput(1, 1, 1));
  ASSERT_TRUE(mats.AssignInput(0, 1, 0));
  ASSERT_TRUE(mats.AssignInput(1, 0, 0));
  EXPECT_STREQ(mats.GetInputName(0), "mat2tex2");
  mats.ResetInputSlots();
  nbMatManager fresh(3, "");
  fresh.SetMaterialCount(2);
  for (int32_t i = 0; i < mats.InputSlotCount(); ++i) {
    const InputSlot& slot = mats.GetInputSlot(i);
    EXPECT_EQ(slot.used, 0) << i;
    EXPECT_EQ(slot.value, 0) << i;
    EXPECT_EQ(slot.mat, -1) << i;
    EXPECT_EQ(slot.tex, 0) << i;
    EXPECT_STREQ(mats.GetInputName(i), fresh.GetInputName(i)) << i;
  }
  SettingsDocument a, b;
  a.BeginWriting();
  b.BeginWriting();
  mats.SaveAll(a, "");
  fresh.SaveAll(b, "");
  EXPECT_EQ(a.Text(), b.Text());
  ASSERT_TRUE(mats.AssignInput(1, 1, 0));
  EXPECT_EQ(mats.GetInputSlot(0).mat, 1) << "the lowest slot is never-bound again";
  EXPECT_TRUE(mats.AssignInput(0, 0, 0));
  EXPECT_TRUE(mats.AssignInput(0, 1, 0));
  EXPECT_FALSE(mats.AssignInput(1, 0, 0)) << "three slots, three bindings";
}

TEST(MaterialSlotsTest, AssignInputScansFromTheLastSlot) {
  nbMatManager mats(4, "");
  mats.SetMaterialCount(2);
  ASSERT_TRUE(mats.AssignInput(0, 0, 0));
  EXPECT_EQ(mats.GetInputSlot(0).mat, 0) << "lowest never-bound slot";
  ASSERT_TRUE(mats.AssignInput(0, 1, 1));
  EXPECT_EQ(mats.GetInputSlot(1).tex, 1);
  EXPECT_EQ(mats.GetInputSlot(1).value, 1);
  EXPECT_EQ(mats.GetInputSlot(1).reserved, 0);
  // Freeing material 0 frees its slots but they keep its binding.
  mats.FreeMaterial(0);
  EXPECT_EQ(mats.GetInputSlot(0).used, 0);
  EXPECT_EQ(mats.GetInputSlot(0).mat, 0);
  ASSERT_TRUE(mats.AssignInput(1, 0, 0));
  EXPECT_EQ(mats.GetInputSlot(2).mat, 1) << "never-bound beats once-bound free slots";
  ASSERT_TRUE(mats.AssignInput(0, 1, 0));
  EXPECT_EQ(mats.GetInputSlot(1).used, 1) << "a slot holding the pair is taken again";
  ASSERT_TRUE(mats.AssignInput(5, 0, 0));
  EXPECT_EQ(mats.GetInputSlot(3).mat, 5);
  ASSERT_TRUE(mats.AssignInput(6, 0, 0));
  EXPECT_EQ(mats.GetInputSlot(0).mat, 6) << "the highest free slot when none is fresh";
  EXPECT_FALSE(mats.AssignInput(7, 0, 0));
}

TEST(MaterialSlotsTest, InputNamesInTheirThreeForms) {
  nbMatManager one(2, "");
  one.SetMaterialCount(1);
  ASSERT_TRUE(one.AssignInput(0, 1, 0));
  EXPECT_STREQ(one.GetInputName(0), "tex2");
  EXPECT_STREQ(one.GetInputName(1), "tex2") << "a never-bound slot counts as that layer";
  EXPECT_EQ(one.GetInputName(2), nullptr);
  EXPECT_EQ(one.GetInputName(-1), nullptr);
  one.SetMaterialCount(3);
  EXPECT_STREQ(one.GetInputName(0), "mat1tex2");
  nbMatManager prefixed(1, "Blob");
  prefixed.SetMaterialCount(2);
  ASSERT_TRUE(prefixed.AssignInput(1, 0, 0));
  EXPECT_STREQ(prefixed.GetInputName(0), "Blobtex1");
}

// ---- the editor ------------------------------------------------------------------

class ScriptedDialog final : public orrery::DialogService {
 public:
  explicit ScriptedDialog(int32_t answer) : answer_(answer) { orrery::SetDialogService(this); }
  ~ScriptedDialog() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    for (int32_t i = 0; i < model.count; ++i) {
      const orrery::DialogField& f = model.fields[i];
      if (f.hint) hints += std::string(f.hint) + "\n";
      if (std::string(f.label) == "name") *static_cast<std::string*>(f.value) = "edited";
      if (std::string(f.label) == "transparency") *static_cast<int32_t*>(f.value) = 1;
      if (std::string(f.label) == "second texture: source") *static_cast<int32_t*>(f.value) = 0;
      if (std::string(f.label) == "second texture: light x") *static_cast<float*>(f.value) = 0.5f;
    }
    return answer_;
  }
  std::string hints;

 private:
  int32_t answer_;
};

TEST(MaterialDialogTest, OkAppliesTheCopyCancelLeavesTheRecord) {
  Material m = DefaultMaterial();
  {
    ScriptedDialog cancel(0);
    EXPECT_EQ(RunMaterialDialog(m, nullptr, "help.htm"), 0);
  }
  EXPECT_STREQ(m.name, "");
  EXPECT_EQ(m.trans, -1);
  ScriptedDialog ok(1);
  EXPECT_EQ(RunMaterialDialog(m, nullptr, "help.htm"), 1);
  EXPECT_STREQ(m.name, "edited");
  EXPECT_EQ(m.trans, 0);
  EXPECT_EQ(m.tex[1].texmode, 0);
  EXPECT_FLOAT_EQ(m.tex[1].l_x, 0.5f);
  EXPECT_EQ(m.tex[0].texmode, 1);
  for (const char* text :
       {"enable second texture", "add color of second texture to color of first texture",
        "subtract color of second texture from color of first texture",
        "use BLUE color of second texture as transparency", "enable wireframe rendering",
        "very useful if type of second texture is 'sub'", "'size of light spot' of reflective lighting",
        "check this if the inputscreen is static (i.e. doesn't change while the composition is shown)"})
    EXPECT_NE(ok.hints.find(text), std::string::npos) << text;
}

}  // namespace
