// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace kestrane::shaders {

// Pieces of GLSL; programs are made of `head` and the pieces that they need.

/// The block that all programs share. Lights are seen in parallel views of one sphere around all
/// that is drawn; light 0 is the key light, light 1 shines from the camera.
inline constexpr const char* head = R"(#version 450 core
layout(std140, binding = 0) uniform View {
  mat4 viewProjection;
  mat4 lightProjection[2];
  vec4 towardLight[2];  // w: strength
  vec4 eye;             // w: the size of a sub-pixel at distance 1
  vec4 up;              // w: the radius of the sphere
  vec4 hair;            // x: how fast hair swallows light, per length; y: 1 ribbons, 0 lines
};
)";

/// How much of a light comes through to a point: what lies deeper behind the surface that the light
/// sees first lies behind more hair, which lets exponentially less through.
inline constexpr const char* lightThrough = R"(
layout(binding = 0) uniform sampler2D lightDepth[2];
float lightThrough(int light, vec3 point, float slack) {
  vec3 place = (lightProjection[light] * vec4(point, 1.0)).xyz * 0.5 + 0.5;
  vec2 texel = 1.0 / vec2(textureSize(lightDepth[0], 0));
  float through = 0.0;
  for (int i = 0; i < 4; ++i) {
    vec2 at = place.xy + (vec2(i & 1, i >> 1) * 2.0 - 1.0) * 1.5 * texel;
    float first = light == 0 ? textureLod(lightDepth[0], at, 0.0).r
                             : textureLod(lightDepth[1], at, 0.0).r;
    float behind = (place.z - first) * 2.0 * up.w;
    through += exp(-max(behind - slack, 0.0) * hair.x);
  }
  return through * 0.25;
}
)";

inline constexpr const char* surfaceVertex = R"(
layout(std430, binding = 1) readonly buffer Points { vec4 points[]; };
layout(std430, binding = 2) readonly buffer Normals { vec4 normals[]; };
out vec3 position;
out vec3 normal;
void main() {
  position = points[gl_VertexID].xyz;
  normal = normals[gl_VertexID].xyz;
  gl_Position = viewProjection * vec4(position, 1.0);
}
)";

/// A plain matt skin.
inline constexpr const char* surfaceFragment = R"(
in vec3 position;
in vec3 normal;
out vec4 result;
void main() {
  vec3 toEye = normalize(eye.xyz - position);
  vec3 n = faceforward(normalize(normal), -toEye, normal);
  vec3 light = vec3(0.10, 0.11, 0.13) * (0.6 + 0.4 * dot(n, up.xyz));
  for (int i = 0; i < 2; ++i) {
    float facing = max((dot(n, towardLight[i].xyz) + 0.15) / 1.15, 0.0);
    light += towardLight[i].w * facing * mix(0.12, 1.0, lightThrough(i, position, 0.03 * up.w));
  }
  result = vec4(vec3(0.50, 0.40, 0.34) * light, 1.0);
}
)";

/// Strands as ribbons that face the camera, two vertices a point, or as lines of a sub-pixel's
/// width through the even ones. No strand is drawn thinner than a sub-pixel: one that is thinner
/// covers a share of its sub-pixels.
inline constexpr const char* ribbonVertex = R"(
layout(std430, binding = 1) readonly buffer Points { vec4 points[]; };  // w: width
layout(std430, binding = 2) readonly buffer Looks { uvec2 looks[]; };   // color, tangent
vec3 tangentOf(uint bits) {
  vec2 e = unpackSnorm2x16(bits);
  vec3 v = vec3(e, 1.0 - abs(e.x) - abs(e.y));
  if (v.z < 0.0) v.xy = (1.0 - abs(v.yx)) * vec2(v.x < 0.0 ? -1.0 : 1.0, v.y < 0.0 ? -1.0 : 1.0);
  return normalize(v);
}
)";

inline constexpr const char* ribbonDepthMain = R"(
void main() { gl_Position = viewProjection * vec4(points[gl_VertexID >> 1].xyz, 1.0); }
)";

inline constexpr const char* surfaceDepthMain = R"(
layout(std430, binding = 1) readonly buffer Points { vec4 points[]; };
void main() { gl_Position = viewProjection * vec4(points[gl_VertexID].xyz, 1.0); }
)";

inline constexpr const char* depthFragment = R"(
void main() {}
)";

/// Light on fibres per vertex: the diffuse term of Kajiya and Kay (1989), and two highlights about
/// the tilted cones that Marschner et al. (2003) measured, the first in the light's colour and
/// shifted toward the root, the second coloured by the fibre and shifted toward the tip.
inline constexpr const char* ribbonMain = R"(
out vec3 color;
out float coverage;
float lobe(float angle, float width) { return exp(-0.5 * angle * angle / (width * width)); }
void main() {
  vec4 point = points[gl_VertexID >> 1];
  uvec2 look = looks[gl_VertexID >> 1];
  vec3 tangent = tangentOf(look.y);
  vec4 unpacked = unpackUnorm4x8(look.x);
  vec3 fibre = unpacked.rgb * unpacked.rgb;
  float along = unpacked.a;

  vec3 away = point.xyz - eye.xyz;
  float distance = length(away);
  vec3 toEye = -away / distance;
  vec3 across = cross(tangent, toEye);
  float size = length(across);
  across = size > 1e-4 ? across / size : vec3(0.0);
  float thinnest = eye.w * distance;
  coverage = point.w / thinnest;
  float side = hair.y * ((gl_VertexID & 1) == 0 ? -0.5 : 0.5);
  vec3 place = point.xyz + across * side * max(point.w, thinnest);
  gl_Position = viewProjection * vec4(place, 1.0);

  float eyeAngle = asin(clamp(dot(tangent, toEye), -1.0, 1.0));
  float nearRoot = mix(0.6, 1.0, smoothstep(0.0, 0.25, along));
  color = fibre * 0.13 * nearRoot * (0.75 + 0.25 * abs(dot(across, cross(up.xyz, toEye))));
  for (int i = 0; i < 2; ++i) {
    vec3 toLight = towardLight[i].xyz;
    float sine = clamp(dot(tangent, toLight), -1.0, 1.0);
    float cosine = sqrt(1.0 - sine * sine);
    float half_ = 0.5 * (asin(sine) + eyeAngle);
    float through = lightThrough(i, point.xyz, 0.012 * up.w);
    vec3 light = fibre * cosine * 0.8;
    light += vec3(0.075) * lobe(half_ + 0.09, 0.09) * cosine;
    light += sqrt(fibre) * fibre * 2.2 * lobe(half_ - 0.14, 0.16) * cosine;
    color += light * towardLight[i].w * nearRoot * mix(0.06, 1.0, through);
  }
  color = min(color, vec3(8.0));
}
)";

/// A share of the sub-pixels is left out at random (stochastic transparency after Enderton,
/// Sintorn, Shirley and Luebke 2010), so that strands need no sorting.
inline constexpr const char* ribbonFragment = R"(
in vec3 color;
in float coverage;
out vec4 result;
uint scramble(uint x) {
  x ^= x >> 16; x *= 0x7feb352du; x ^= x >> 15; x *= 0x846ca68bu; return x ^ (x >> 16);
}
void main() {
  uvec2 pixel = uvec2(gl_FragCoord.xy);
  uint random = scramble(pixel.x + 8192u * pixel.y + 0x9e3779b9u * uint(gl_PrimitiveID));
  if (float(random >> 8) >= coverage * 16777216.0) discard;
  result = vec4(color, 1.0);
}
)";

/// One triangle over the whole picture.
inline constexpr const char* finishVertex = R"(
void main() { gl_Position = vec4(ivec2(gl_VertexID & 1, gl_VertexID >> 1) * 4 - 1, 0.0, 1.0); }
)";

/// Averages the sub-pixels over the ground, rolls bright light off and encodes sRGB. Of the
/// picture, eye.y is the tile's lowest row and eye.w the height.
inline constexpr const char* finishFragment = R"(
layout(binding = 0) uniform sampler2D picture;
out vec4 result;
void main() {
  ivec2 first = ivec2(gl_FragCoord.xy) * 4;
  vec4 sum = vec4(0.0);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) {
      vec4 texel = texelFetch(picture, first + ivec2(x, y), 0);
      sum += vec4(texel.rgb / (1.0 + 0.15 * texel.rgb), texel.a);
    }
  }
  sum /= 16.0;
  vec3 ground = mix(vec3(0.23), vec3(0.38), (gl_FragCoord.y + eye.y) / eye.w);
  vec3 linear = min(sum.rgb + ground * (1.0 - sum.a), vec3(1.0));
  result = vec4(mix(linear * 12.92, 1.055 * pow(linear, vec3(1.0 / 2.4)) - 0.055,
                    step(vec3(0.0031308), linear)), 1.0);
}
)";

}  // namespace kestrane::shaders
