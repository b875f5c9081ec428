#include "renderers/VrGLDraw.h"

#include "base/VrMessage.h"

#include <epoxy/gl.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <vector>

namespace {

const char* const vertexShader = R"(#version 330 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec3 color;
uniform mat4 viewProjection;
uniform mat4 model;         // an archive's frame; the identity for everything else
uniform mat3 normalModel;   // its inverse transpose, for normals
uniform vec3 light;
uniform int mode;  // 0 surface, 1 curve (normal holds the tangent), 2 unlit
out vec3 shade;
void main() {
  gl_Position = viewProjection * (model * vec4(position, 1.0));
  float lit = 1.0;
  vec3 n = normalModel * normal;
  float len = length(n);
  if (mode == 0 && len > 0.0) {
    lit = 0.25 + 0.75 * abs(dot(n / len, light));
  } else if (mode == 1 && len > 0.0) {
    float c = dot(n / len, light);
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

// The GL names of one vertex array with its vertex and index buffers.
struct ArrayNames {
  GLuint& array;
  GLuint& vertexBuffer;
  GLuint& indexBuffer;
};

// Fills the vertex array `names` (made on first use) with `vertices` of `stride` bytes each and
// `indices`; attribute k of the first `attributes` (vec3s) sits at `offsets[k]` in a vertex, the
// others are left constant.
template <class Vertex>
void fillArray(ArrayNames names, const std::vector<Vertex>& vertices, const std::vector<uint32_t>& indices,
               const size_t* offsets, GLuint attributes) {
  if (!names.array) {
    glGenVertexArrays(1, &names.array);
    glGenBuffers(1, &names.vertexBuffer);
    glGenBuffers(1, &names.indexBuffer);
  }
  glBindVertexArray(names.array);
  glBindBuffer(GL_ARRAY_BUFFER, names.vertexBuffer);
  glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(vertices.size() * sizeof(Vertex)), vertices.data(),
               GL_STATIC_DRAW);
  glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, names.indexBuffer);
  glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(indices.size() * sizeof(uint32_t)), indices.data(),
               GL_STATIC_DRAW);
  for (GLuint k = 0; k < 3; ++k) {
    if (k >= attributes) {
      glDisableVertexAttribArray(k);
      continue;
    }
    glEnableVertexAttribArray(k);
    glVertexAttribPointer(k, 3, GL_FLOAT, GL_FALSE, GLsizei(sizeof(Vertex)), reinterpret_cast<const void*>(offsets[k]));
  }
  glBindVertexArray(0);
}

void uploadMesh(VrGLCache::Mesh& mesh) {
  if (mesh.indices.empty()) {
    mesh.glIndexCount = 0;
    return;
  }
  const size_t offsets[3] = {offsetof(VrGLCache::Vertex, position), offsetof(VrGLCache::Vertex, normal),
                             offsetof(VrGLCache::Vertex, color)};
  fillArray({mesh.glArray, mesh.glVertexBuffer, mesh.glIndexBuffer}, mesh.vertices, mesh.indices, offsets, 3);
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

// The colour is each archive's own: a constant attribute set before its draw.
void uploadProxyBuffers(VrGLProxy& proxy) {
  const size_t offsets[2] = {offsetof(VrGLProxy::Vertex, position), offsetof(VrGLProxy::Vertex, normal)};
  fillArray({proxy.glArray, proxy.glVertexBuffer, proxy.glIndexBuffer}, proxy.vertices, proxy.indices, offsets, 2);
}

// The triangles one by one between glBegin and glEnd; attribute 0 last, since setting it ends a
// vertex.
void uploadProxyList(VrGLProxy& proxy) {
  proxy.glList = glGenLists(1);
  glNewList(proxy.glList, GL_COMPILE);
  glBegin(GL_TRIANGLES);
  for (uint32_t i : proxy.indices) {
    const VrGLProxy::Vertex& v = proxy.vertices[i];
    glVertexAttrib3fv(1, v.normal);
    glVertexAttrib3fv(0, v.position);
  }
  glEnd();
  glEndList();
}

// Whether the current context keeps display lists: a compatibility profile, or one older than
// profiles.
bool hasDisplayLists() {
  if (epoxy_gl_version() < 32) return true;
  GLint mask = 0;
  glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &mask);
  return (mask & GL_CONTEXT_COMPATIBILITY_PROFILE_BIT) != 0;
}

// `m` (column by column) for the shader's `model`, and the inverse transpose of its upper 3 x 3
// for `normalModel`; a flat frame keeps its normals as they are.
void setModel(GLint modelAt, GLint normalAt, const float m[16]) {
  glUniformMatrix4fv(modelAt, 1, GL_FALSE, m);
  // Columns a, b, c: the inverse transpose has columns (b x c, c x a, a x b) / det.
  const SgVec3T<double> a(m[0], m[1], m[2]), b(m[4], m[5], m[6]), c(m[8], m[9], m[10]);
  const SgVec3T<double> cols[3] = {b.cross(c), c.cross(a), a.cross(b)};
  const double det = a.dot(cols[0]);
  float n[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  if (det != 0.0)
    for (int col = 0; col < 3; ++col)
      for (int k = 0; k < 3; ++k) n[3 * col + k] = float(cols[col][k] / det);
  glUniformMatrix3fv(normalAt, 1, GL_FALSE, n);
}

const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

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
  modelAt = glGetUniformLocation(program, "model");
  normalModelAt = glGetUniformLocation(program, "normalModel");
  return true;
}

void VrGLProgram::use(const float viewProjection[16], const SgVec3T<double>& light) const {
  glUseProgram(program);
  glUniformMatrix4fv(viewProjectionAt, 1, GL_FALSE, viewProjection);
  glUniform3f(lightAt, static_cast<float>(light.x), static_cast<float>(light.y), static_cast<float>(light.z));
  setModel(modelAt, normalModelAt, identity);
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

void VrGLProgram::drawArchives(const VrGLCache& cache, const std::vector<VrGLProxy>& proxies,
                               const VrGLProxy& box) const {
  if (cache.archives.empty()) return;
  glUniform1i(modeAt, 0);
  for (const VrGLCache::Archive& archive : cache.archives) {
    const bool own = archive.proxy >= 0 && size_t(archive.proxy) < proxies.size();
    const VrGLProxy& proxy = own ? proxies[size_t(archive.proxy)] : box;
    setModel(modelAt, normalModelAt, own ? archive.place : archive.box);
    glVertexAttrib3fv(2, archive.color);
    if (proxy.glList) {
      glBindVertexArray(0);
      glCallList(proxy.glList);
    } else if (proxy.glArray) {
      glBindVertexArray(proxy.glArray);
      glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(proxy.glIndexCount), GL_UNSIGNED_INT, nullptr);
    }
  }
  glBindVertexArray(0);
  setModel(modelAt, normalModelAt, identity);
}

bool VrGLWantsDisplayLists() { return std::getenv("VORN_DISABLE_VBO_PROXY_ARCHIVES") != nullptr; }

void VrGLUploadProxy(VrGLProxy& proxy) {
  if (proxy.uploaded() || proxy.indices.empty()) return;
  static std::atomic<bool> told{false};
  const bool list = VrGLWantsDisplayLists();
  if (list && hasDisplayLists()) {
    uploadProxyList(proxy);
  } else {
    if (list && !told.exchange(true))
      VR_WARNING(1, "VORN_DISABLE_VBO_PROXY_ARCHIVES asks for display lists, which this GL context (" +
                        VrGLDriverName() + ") does not keep; the archive proxies use buffer objects.");
    uploadProxyBuffers(proxy);
  }
  proxy.glIndexCount = proxy.indices.size();
}

void VrGLReleaseProxy(VrGLProxy& proxy) {
  if (proxy.glList) glDeleteLists(proxy.glList, 1);
  if (proxy.glArray) {
    glDeleteBuffers(1, &proxy.glVertexBuffer);
    glDeleteBuffers(1, &proxy.glIndexBuffer);
    glDeleteVertexArrays(1, &proxy.glArray);
  }
  proxy.glArray = proxy.glVertexBuffer = proxy.glIndexBuffer = proxy.glList = 0;
  proxy.glIndexCount = 0;
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
  VrGLUpload(overlay);
  program.use(identity, SgVec3T<double>(0.0, 0.0, 1.0));
  program.draw(overlay, false);
  VrGLRelease(overlay);
}
