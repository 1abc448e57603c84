// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/view/picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "hosts/view/gl_objects.h"
#include "hosts/view/offscreen_context.h"
#include "hosts/view/shaders.h"
#include "hosts/view/strand_batch.h"

namespace kestrane {

namespace {

using namespace gl;

constexpr int lightMapSize = 2048;
constexpr int subPixels = 4;    // a side: every pixel is the mean of 16
constexpr int tileSize = 1024;  // pixels a side; larger pictures are drawn in several tiles
constexpr std::size_t lightMapStrands = 40000;  // about so many are enough to cast shadows

/// The uniform block of the shaders; see there.
struct ViewBlock {
  Matrix4 viewProjection{};
  Matrix4 lightProjection[2]{};
  Vec4f towardLight[2]{};
  Vec4f eye, up, hair;
};
static_assert(sizeof(ViewBlock) == 16 * 17);

Vec4f with(Vec3f v, float w) {
  return {v.x, v.y, v.z, w};
}

struct Sphere {
  Vec3f center;
  float radius = 1.0f;
};

/// Points that stand for all that is drawn: every vertex, and the points of some strands.
std::vector<Vec3f> samplePoints(const std::vector<ScalpMeshPtr>& surfaces,
                                const StrandSet& strands) {
  std::vector<Vec3f> points;
  for (const ScalpMeshPtr& surface : surfaces) {
    points.insert(points.end(), surface->points().begin(), surface->points().end());
  }
  const std::size_t stride = std::max<std::size_t>(1, strands.pointCount() / 1000000);
  for (std::size_t i = 0; i < strands.pointCount(); i += stride) {
    points.push_back(strands.points()[i]);
  }
  return points;
}

Sphere sphereAround(const std::vector<Vec3f>& points) {
  if (points.empty()) return {};
  Vec3f low = points[0], high = points[0];
  for (const Vec3f& point : points) {
    low = min(low, point);
    high = max(high, point);
  }
  Sphere sphere{lerp(low, high, 0.5f), 0.0f};
  for (const Vec3f& point : points) {
    sphere.radius = std::max(sphere.radius, distance(point, sphere.center));
  }
  sphere.radius = std::max(sphere.radius * 1.01f, 1e-6f);
  return sphere;
}

/// A surface on the graphics card.
struct SurfaceBuffers {
  GlBuffer points, normals, indices;
  GLsizei indexCount = 0;

  explicit SurfaceBuffers(const ScalpMesh& mesh) {
    std::vector<Vec4f> values;
    for (const Vec3f& point : mesh.points()) values.push_back(with(point, 1.0f));
    points = makeBuffer(values.size() * sizeof(Vec4f), values.data());
    values.clear();
    for (const Vec3f& normal : mesh.normals()) values.push_back(with(normal, 0.0f));
    normals = makeBuffer(values.size() * sizeof(Vec4f), values.data());
    const auto& triangles = mesh.triangles();
    indices = makeBuffer(triangles.size() * sizeof(triangles[0]), triangles.data());
    indexCount = static_cast<GLsizei>(3 * triangles.size());
  }
};

/// The buffers that batches of strands stream through. There are two, so that one is filled while
/// the other is drawn.
class StrandStream {
 public:
  void draw(StrandBatches batches, const std::function<void(std::size_t)>& done) {
    while (batches.next(batch_)) {
      Slot& slot = slots_[turn_++ % 2];
      if (slot.points == 0) slot = Slot::make();
      glNamedBufferSubData(slot.points, 0, bytes(batch_.points), batch_.points.data());
      glNamedBufferSubData(slot.looks, 0, bytes(batch_.looks), batch_.looks.data());
      glNamedBufferSubData(slot.indices, 0, bytes(batch_.indices), batch_.indices.data());
      glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 1, slot.points);
      glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 2, slot.looks);
      glVertexArrayElementBuffer(array_, slot.indices);
      glBindVertexArray(array_);
      glDrawElements(batches.ribbons() ? GL_TRIANGLE_STRIP : GL_LINE_STRIP,
                     static_cast<GLsizei>(batch_.indices.size()), GL_UNSIGNED_INT, nullptr);
      if (done) done(batches.strandsDone());
    }
  }

 private:
  struct Slot {
    GlBuffer points, looks, indices;
    static Slot make() {
      // A strip has an index more a strand, and a strand two points at least.
      constexpr std::size_t most = StrandBatch::mostPoints;
      return {makeBuffer(most * sizeof(Vec4f)), makeBuffer(2 * most * 4),
              makeBuffer((2 * most + most / 2) * 4)};
    }
  };

  template <class T>
  static GLsizeiptr bytes(const Array<T>& values) {
    return static_cast<GLsizeiptr>(values.size() * sizeof(T));
  }

  GlVertexArray array_ = makeVertexArray();
  Slot slots_[2];
  std::size_t turn_ = 0;
  StrandBatch batch_;
};

std::string text(std::initializer_list<const char*> pieces) {
  std::string whole = shaders::head;
  for (const char* piece : pieces) whole += piece;
  return whole;
}

struct Programs {
  GlProgram surfaceDepth{text({shaders::surfaceDepthMain}), text({shaders::depthFragment})};
  GlProgram ribbonDepth{text({shaders::ribbonVertex, shaders::ribbonDepthMain}),
                        text({shaders::depthFragment})};
  GlProgram surface{text({shaders::surfaceVertex}),
                    text({shaders::lightThrough, shaders::surfaceFragment})};
  GlProgram ribbon{text({shaders::lightThrough, shaders::ribbonVertex, shaders::ribbonMain}),
                   text({shaders::ribbonFragment})};
  GlProgram finish{text({shaders::finishVertex}), text({shaders::finishFragment})};
};

class PictureMaker {
 public:
  PictureMaker(const std::vector<ScalpMeshPtr>& surfaces, const StrandSet& strands,
               const PictureOptions& options)
      : strands_(strands), options_(options), colors_(strands) {
    for (const ScalpMeshPtr& surface : surfaces) {
      if (surface && surface->triangleCount() > 0) surfaces_.emplace_back(*surface);
    }
    const std::vector<Vec3f> points = samplePoints(surfaces, strands);
    sphere_ = sphereAround(points);
    camera_ = cameraFor(options.camera, options.upAxis, points,
                        static_cast<float>(options.width) / static_cast<float>(options.height));
    subPixel_ = camera_.pixelAtUnitDistance(options.height * subPixels);
    // Lines cost half of what ribbons do, and do where no strand is wider than one.
    const auto& widths = strands.widths();
    const float widest = widths.empty() ? 0.0f : *std::max_element(widths.begin(), widths.end());
    ribbons_ = widest > 1.5f * subPixel_ * camera_.nearest;
    const Vec3f key =
        normalize(camera_.right * -0.55f + camera_.up * 0.75f - camera_.forward * 0.7f);
    lights_[0] = with(key, 1.25f);
    lights_[1] = with(normalize(camera_.up * 0.1f - camera_.forward), 0.45f);
  }

  std::vector<std::uint8_t> draw() {
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_PRIMITIVE_RESTART);
    glPrimitiveRestartIndex(StrandBatch::restart);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    for (int light = 0; light < 2; ++light) drawLightMap(light);
    const std::size_t row = 3 * static_cast<std::size_t>(options_.width);
    std::vector<std::uint8_t> pixels(row * static_cast<std::size_t>(options_.height));
    for (int y = 0; y < options_.height; y += tileSize) {
      for (int x = 0; x < options_.width; x += tileSize) {
        const Tile tile{x, y, std::min(tileSize, options_.width - x),
                        std::min(tileSize, options_.height - y)};
        const GlTexture scene = drawScene(tile);
        copyRows(finish(tile, scene), tile, pixels);
        ++tilesDone_;
      }
    }
    return pixels;
  }

 private:
  /// A part of the picture, in pixels from its lower left corner.
  struct Tile {
    int x, y, width, height;
  };

  std::size_t tileCount() const {
    const auto along = [](int size) { return static_cast<std::size_t>((size - 1) / tileSize + 1); };
    return along(options_.width) * along(options_.height);
  }

  /// The camera's matrix, spread so that a tile fills the view.
  Matrix4 tileProjection(const Tile& tile) const {
    const auto width = static_cast<float>(options_.width);
    const auto height = static_cast<float>(options_.height);
    const float x = width / static_cast<float>(tile.width);
    const float y = height / static_cast<float>(tile.height);
    const float moveX =
        x - 1.0f - 2.0f * static_cast<float>(tile.x) / static_cast<float>(tile.width);
    const float moveY =
        y - 1.0f - 2.0f * static_cast<float>(tile.y) / static_cast<float>(tile.height);
    return multiply({x, 0, 0, 0, 0, y, 0, 0, 0, 0, 1, 0, moveX, moveY, 0, 1},
                    camera_.viewProjection);
  }

  void setView(const ViewBlock& block) {
    glNamedBufferSubData(viewBuffer_, 0, sizeof block, &block);
    glBindBufferBase(GL_UNIFORM_BUFFER, 0, viewBuffer_);
  }

  void drawSurfaces() {
    glBindVertexArray(surfaceArray_);
    for (const SurfaceBuffers& surface : surfaces_) {
      glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 1, surface.points);
      glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 2, surface.normals);
      glVertexArrayElementBuffer(surfaceArray_, surface.indices);
      glDrawElements(GL_TRIANGLES, surface.indexCount, GL_UNSIGNED_INT, nullptr);
    }
  }

  Matrix4 lightProjection(int light) const {
    const Vec3f toward{lights_[light].x, lights_[light].y, lights_[light].z};
    return lightMatrix(toward, sphere_.center, sphere_.radius);
  }

  void drawLightMap(int light) {
    lightMaps_[light] = makeTexture(GL_DEPTH_COMPONENT32F, lightMapSize, lightMapSize);
    const GlFramebuffer framebuffer = makeFramebuffer();
    glNamedFramebufferTexture(framebuffer, GL_DEPTH_ATTACHMENT, lightMaps_[light], 0);
    glNamedFramebufferDrawBuffer(framebuffer, GL_NONE);
    checkFramebuffer(framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glViewport(0, 0, lightMapSize, lightMapSize);
    constexpr float farthest = 1.0f;
    glClearNamedFramebufferfv(framebuffer, GL_DEPTH, 0, &farthest);

    const std::size_t stride = std::max<std::size_t>(1, strands_.strandCount() / lightMapStrands);
    ViewBlock block;
    block.viewProjection = lightProjection(light);
    setView(block);
    programs_.surfaceDepth.use();
    drawSurfaces();
    programs_.ribbonDepth.use();
    stream_.draw(StrandBatches(strands_, colors_, false, stride), {});
  }

  /// The tile in linear colours at the size of sub-pixels, clear where there is nothing.
  GlTexture drawScene(const Tile& tile) {
    const int width = tile.width * subPixels, height = tile.height * subPixels;
    GlTexture color = makeTexture(GL_RGBA16F, width, height);
    const GlTexture depth = makeTexture(GL_DEPTH_COMPONENT32F, width, height);
    const GlFramebuffer framebuffer = makeFramebuffer();
    glNamedFramebufferTexture(framebuffer, GL_COLOR_ATTACHMENT0, color, 0);
    glNamedFramebufferTexture(framebuffer, GL_DEPTH_ATTACHMENT, depth, 0);
    checkFramebuffer(framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glViewport(0, 0, width, height);
    constexpr float nothing[4] = {0.0f, 0.0f, 0.0f, 0.0f}, farthest = 1.0f;
    glClearNamedFramebufferfv(framebuffer, GL_COLOR, 0, nothing);
    glClearNamedFramebufferfv(framebuffer, GL_DEPTH, 0, &farthest);

    ViewBlock block;
    block.viewProjection = tileProjection(tile);
    for (int light = 0; light < 2; ++light) {
      block.lightProjection[light] = lightProjection(light);
      block.towardLight[light] = lights_[light];
      glBindTextureUnit(static_cast<GLuint>(light), lightMaps_[light]);
    }
    block.eye = with(camera_.eye, subPixel_);
    block.up = with(camera_.up, sphere_.radius);
    block.hair.x = 14.0f / sphere_.radius;
    block.hair.y = ribbons_ ? 1.0f : 0.0f;
    setView(block);
    programs_.surface.use();
    drawSurfaces();
    programs_.ribbon.use();
    StrandBatches batches(strands_, colors_, ribbons_);
    const std::size_t total = batches.strandCount();
    stream_.draw(std::move(batches), [&](std::size_t done) {
      if (options_.progress) options_.progress(tilesDone_ * total + done, tileCount() * total);
    });
    return color;
  }

  /// The tile's pixels, rows from bottom to top.
  std::vector<std::uint8_t> finish(const Tile& tile, const GlTexture& scene) {
    const GlTexture picture = makeTexture(GL_RGBA8, tile.width, tile.height);
    const GlFramebuffer framebuffer = makeFramebuffer();
    glNamedFramebufferTexture(framebuffer, GL_COLOR_ATTACHMENT0, picture, 0);
    checkFramebuffer(framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glViewport(0, 0, tile.width, tile.height);
    ViewBlock block;
    block.eye.y = static_cast<float>(tile.y);
    block.eye.w = static_cast<float>(options_.height);
    setView(block);
    glBindTextureUnit(0, scene);
    glBindVertexArray(surfaceArray_);
    glDisable(GL_DEPTH_TEST);
    programs_.finish.use();
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glEnable(GL_DEPTH_TEST);

    std::vector<std::uint8_t> pixels(3 * static_cast<std::size_t>(tile.width) *
                                     static_cast<std::size_t>(tile.height));
    glReadPixels(0, 0, tile.width, tile.height, GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
    if (glGetError() != GL_NO_ERROR) throw ViewError("cannot draw: the OpenGL driver failed");
    return pixels;
  }

  /// Puts a tile into the picture, whose rows go from top to bottom.
  void copyRows(const std::vector<std::uint8_t>& from, const Tile& tile,
                std::vector<std::uint8_t>& pixels) const {
    const std::size_t size = 3 * static_cast<std::size_t>(tile.width);
    for (int row = 0; row < tile.height; ++row) {
      const auto top = static_cast<std::size_t>(options_.height - 1 - tile.y - row);
      std::memcpy(pixels.data() + 3 * (top * static_cast<std::size_t>(options_.width) +
                                       static_cast<std::size_t>(tile.x)),
                  from.data() + static_cast<std::size_t>(row) * size, size);
    }
  }

  const StrandSet& strands_;
  const PictureOptions& options_;
  const StrandColorReader colors_;
  Programs programs_;
  StrandStream stream_;
  std::vector<SurfaceBuffers> surfaces_;
  GlBuffer viewBuffer_ = makeBuffer(sizeof(ViewBlock));
  GlVertexArray surfaceArray_ = makeVertexArray();
  GlTexture lightMaps_[2];
  Vec4f lights_[2];
  Sphere sphere_;
  Camera camera_;
  float subPixel_ = 0.0f;  // its size at distance 1
  bool ribbons_ = true;
  std::size_t tilesDone_ = 0;
};

}  // namespace

std::vector<std::uint8_t> drawPicture(const std::vector<ScalpMeshPtr>& surfaces,
                                      const StrandSet& strands, const PictureOptions& options) {
  const OffscreenContext context;
  return PictureMaker(surfaces, strands, options).draw();
}

}  // namespace kestrane
