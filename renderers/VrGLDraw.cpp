#include "renderers/VrGLDraw.h"

#include <epoxy/gl.h>

#include <cstddef>
#include <vector>

namespace {

const char* const vertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
uniform mat4 viewProjection;
uniform vec3 light;
uniform int mode;  // 0 surface, 1 curve (normal holds the tangent), 2 unlit
out vec3 shade;
void main() {
  gl_Position = viewProjection * vec4(position, 1.0);
  float lit = 1.0;
  float len = length(normal);
  if (mode == 0 && len > 0.0) {
    lit = 0.25 + 0.75 * abs(dot(normal / len, light));
  } else if (mode == 1 && len > 0.0) {
    float c = dot(normal / len, light);
    lit = 0.35 + 0.65 * sqrt(max(0.0, 1.0 - c * c));
  }
  shade = color * lit;
}
)";

const char* const fragmentShader = R"(#version 330 core
in vec3 shade;
out vec4 fragColor;
void main() { fragColor = vec4(shade, 1.0); }
)";

bool compile(GLenum kind, const char* source, GLuint& shader, std::string& error) {
  shader = glCreateShader(kind);
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  GLint ok = GL_FALSE;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
  if (ok == GL_TRUE) return true;
  char log[1024] = {};
  glGetShaderInfoLog(shader, sizeof log, nullptr, log);
  error = std::string("the preview's shader does not compile: ") + log;
  return false;
}

void uploadMesh(VrGLCache::Mesh& mesh) {
  if (mesh.indices.empty()) {
    mesh.glIndexCount = 0;
    return;
  }
  if (!mesh.glArray) {
    glGenVertexArrays(1, &mesh.glArray);
    glGenBuffers(1, &mesh.glVertexBuffer);
    glGenBuffers(1, &mesh.glIndexBuffer);
  }
  glBindVertexArray(mesh.glArray);
  glBindBuffer(GL_ARRAY_BUFFER, mesh.glVertexBuffer);
  glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(mesh.vertices.size() * sizeof(VrGLCache::Vertex)),
               mesh.vertices.data(), GL_STATIC_DRAW);
  glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, mesh.glIndexBuffer);
  glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(mesh.indices.size() * sizeof(uint32_t)),
               mesh.indices.data(), GL_STATIC_DRAW);
  const GLsizei stride = sizeof(VrGLCache::Vertex);
  const size_t offsets[3] = {offsetof(VrGLCache::Vertex, position), offsetof(VrGLCache::Vertex, normal),
                             offsetof(VrGLCache::Vertex, color)};
  for (GLuint k = 0; k < 3; ++k) {
    glEnableVertexAttribArray(k);
    glVertexAttribPointer(k, 3, GL_FLOAT, GL_FALSE, stride, reinterpret_cast<const void*>(offsets[k]));
  }
  glBindVertexArray(0);
  mesh.glIndexCount = mesh.indices.size();
}

void releaseMesh(VrGLCache::Mesh& mesh) {
  if (!mesh.glArray) return;
  glDeleteBuffers(1, &mesh.glVertexBuffer);
  glDeleteBuffers(1, &mesh.glIndexBuffer);
  glDeleteVertexArrays(1, &mesh.glArray);
  mesh.glArray = mesh.glVertexBuffer = mesh.glIndexBuffer = 0;
  mesh.glIndexCount = 0;
}

}  // namespace

VrGLProgram::~VrGLProgram() {
  if (program) glDeleteProgram(program);
}

bool VrGLProgram::init(std::string& error) {
  GLuint vertex = 0, fragment = 0;
  const bool compiled =
      compile(GL_VERTEX_SHADER, vertexShader, vertex, error) && compile(GL_FRAGMENT_SHADER, fragmentShader, fragment, error);
  if (compiled) {
    program = glCreateProgram();
    glAttachShader(program, vertex);
    glAttachShader(program, fragment);
    glLinkProgram(program);
  }
  if (vertex) glDeleteShader(vertex);
  if (fragment) glDeleteShader(fragment);
  if (!compiled) return false;
  GLint ok = GL_FALSE;
  glGetProgramiv(program, GL_LINK_STATUS, &ok);
  if (ok != GL_TRUE) {
    char log[1024] = {};
    glGetProgramInfoLog(program, sizeof log, nullptr, log);
    error = std::string("the preview's shaders do not link: ") + log;
    return false;
  }
  viewProjectionAt = glGetUniformLocation(program, "viewProjection");
  lightAt = glGetUniformLocation(program, "light");
  modeAt = glGetUniformLocation(program, "mode");
  return true;
}

void VrGLProgram::use(const float viewProjection[16], const SgVec3T<double>& light) const {
  glUseProgram(program);
  glUniformMatrix4fv(viewProjectionAt, 1, GL_FALSE, viewProjection);
  glUniform3f(lightAt, static_cast<float>(light.x), static_cast<float>(light.y), static_cast<float>(light.z));
}

void VrGLProgram::drawMesh(const VrGLCache::Mesh& mesh, unsigned primitive, int mode) const {
  if (!mesh.glArray || mesh.glIndexCount == 0) return;
  glUniform1i(modeAt, mode);
  glBindVertexArray(mesh.glArray);
  glDrawElements(primitive, static_cast<GLsizei>(mesh.glIndexCount), GL_UNSIGNED_INT, nullptr);
  glBindVertexArray(0);
}

void VrGLProgram::draw(const VrGLCache& cache, bool outlines) const {
  drawMesh(cache.triangles, GL_TRIANGLES, 0);
  drawMesh(cache.lines, GL_LINES, 1);
  if (outlines) drawMesh(cache.outlines, GL_LINES, 2);
  drawMesh(cache.polygons, GL_LINES, 2);
  glPointSize(3.0f);
  drawMesh(cache.points, GL_POINTS, 2);
}

void VrGLUpload(VrGLCache& cache) {
  if (!cache.dirty) return;
  for (VrGLCache::Mesh* mesh : cache.meshes) uploadMesh(*mesh);
  cache.dirty = false;
}

void VrGLRelease(VrGLCache& cache) {
  for (VrGLCache::Mesh* mesh : cache.meshes) releaseMesh(*mesh);
  cache.dirty = true;
}

void VrGLBeginFrame(const float background[3], unsigned width, unsigned height) {
  glViewport(0, 0, GLsizei(width), GLsizei(height));
  glClearColor(background[0], background[1], background[2], 1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glEnable(GL_DEPTH_TEST);
  glDepthFunc(GL_LEQUAL);
  glDisable(GL_CULL_FACE);
}

bool VrGLReadFrame(unsigned width, unsigned height, VrRgbImage& image) {
  std::vector<uint8_t> rgba(size_t(width) * height * 4);
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glReadPixels(0, 0, GLint(width), GLint(height), GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
  image.width = width;
  image.height = height;
  image.pixels.resize(size_t(width) * height * 3);
  // GL's rows run bottom to top.
  for (unsigned y = 0; y < height; ++y) {
    const uint8_t* from = &rgba[size_t(height - 1 - y) * width * 4];
    uint8_t* to = &image.pixels[size_t(y) * width * 3];
    for (unsigned x = 0; x < width; ++x) {
      to[3 * x] = from[4 * x];
      to[3 * x + 1] = from[4 * x + 1];
      to[3 * x + 2] = from[4 * x + 2];
    }
  }
  return glGetError() == GL_NO_ERROR;
}

std::string VrGLDriverName() {
  const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
  return std::string(renderer ? renderer : "?") + " (" + (version ? version : "?") + ")";
}

void VrGLDrawOverlay(const VrGLProgram& program, VrGLCache& overlay) {
  static const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  VrGLUpload(overlay);
  program.use(identity, SgVec3T<double>(0.0, 0.0, 1.0));
  program.draw(overlay, false);
  VrGLRelease(overlay);
}
