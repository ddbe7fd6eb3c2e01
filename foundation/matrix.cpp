// Matrices: row vectors, each operation multiplied on the right.
#include <cmath>

#include "foundation/rendering.h"

namespace {

template <class T>
void multiply_right(T* m, const T* r) {
  T out[16];
  for (int row = 0; row < 4; ++row)
    for (int col = 0; col < 4; ++col) {
      T sum = 0;
      for (int k = 0; k < 4; ++k) sum += m[row * 4 + k] * r[k * 4 + col];
      out[row * 4 + col] = sum;
    }
  for (int i = 0; i < 16; ++i) m[i] = out[i];
}

// Rotation about `axis` (0 x, 1 y, 2 z), counter-clockwise seen from the axis.
template <class T>
void rotate(T* m, int axis, T angle) {
  T c = std::cos(angle), s = std::sin(angle);
  T r[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  int a = (axis + 1) % 3, b = (axis + 2) % 3;  // the two axes that turn
  r[a * 4 + a] = c;
  r[a * 4 + b] = s;
  r[b * 4 + a] = -s;
  r[b * 4 + b] = c;
  multiply_right(m, r);
}

template <class T>
void translate(T* m, T x, T y, T z) {
  T r[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1};
  multiply_right(m, r);
}

}  // namespace

void ZR_Matrix_Single_Data::rotate_x(float angle, bool invalidate) {
  rotate(m, 0, angle);
  if (invalidate) invalidate_adjoint();
}
void ZR_Matrix_Single_Data::rotate_y(float angle, bool invalidate) {
  rotate(m, 1, angle);
  if (invalidate) invalidate_adjoint();
}
void ZR_Matrix_Single_Data::rotate_z(float angle, bool invalidate) {
  rotate(m, 2, angle);
  if (invalidate) invalidate_adjoint();
}
void ZR_Matrix_Single_Data::translate(float x, float y, float z) {
  ::translate(m, x, y, z);
  invalidate_adjoint();
}
void ZR_Matrix_Double_Data::rotate_x(double angle, bool invalidate) {
  rotate(m, 0, angle);
  if (invalidate) invalidate_adjoint();
}
void ZR_Matrix_Double_Data::rotate_y(double angle, bool invalidate) {
  rotate(m, 1, angle);
  if (invalidate) invalidate_adjoint();
}
void ZR_Matrix_Double_Data::rotate_z(double angle, bool invalidate) {
  rotate(m, 2, angle);
  if (invalidate) invalidate_adjoint();
}
void ZR_Matrix_Double_Data::translate(double x, double y, double z) {
  ::translate(m, x, y, z);
  invalidate_adjoint();
}

void ZR_Matrix::allocate(ZR_Matrix& matrix, bool single) {
  if (single)
    matrix.reset(new ZR_Matrix_Single_Data);
  else
    matrix.reset(new ZR_Matrix_Double_Data);
}

void ZR_Matrix::set_identity() {
  if (!body_ || body_->precision != 0) {
    allocate(*this, true);
    return;
  }
  auto* d = static_cast<ZR_Matrix_Single_Data*>(make_mutable(*this, false));
  for (int i = 0; i < 16; ++i) d->m[i] = (i % 5 == 0) ? 1.0f : 0.0f;
  d->w = 1.0f;
  d->flags = 0;
  d->invalidate_adjoint();
}

void ZR_Matrix::rotate(float x, float y, float z) {
  if (!body_) allocate(*this, true);
  ZR_Matrix_Data* d = make_mutable(*this, false);
  if (d->precision == 0) {
    auto* s = static_cast<ZR_Matrix_Single_Data*>(d);
    s->rotate_x(x, false);
    s->rotate_y(y, false);
    s->rotate_z(z, true);
  } else {
    auto* s = static_cast<ZR_Matrix_Double_Data*>(d);
    s->rotate_x(x, false);
    s->rotate_y(y, false);
    s->rotate_z(z, true);
  }
}

void ZR_Matrix::translate(float x, float y, float z) {
  if (!body_) allocate(*this, true);
  ZR_Matrix_Data* d = make_mutable(*this, false);
  if (d->precision == 0)
    static_cast<ZR_Matrix_Single_Data*>(d)->translate(x, y, z);
  else
    static_cast<ZR_Matrix_Double_Data*>(d)->translate(x, y, z);
}

namespace {
template <class T>
void apply(const T* m, int count, const ZR_Point* in, ZR_Point* out, float z_factor) {
  for (int i = 0; i < count; ++i) {
    T x = in[i].x, y = in[i].y, z = in[i].z * z_factor;
    T rx = x * m[0] + y * m[4] + z * m[8] + m[12];
    T ry = x * m[1] + y * m[5] + z * m[9] + m[13];
    T rz = x * m[2] + y * m[6] + z * m[10] + m[14];
    T rw = x * m[3] + y * m[7] + z * m[11] + m[15];
    if (rw != T(1) && rw != T(0)) {
      rx /= rw;
      ry /= rw;
      rz /= rw;
    }
    out[i] = {static_cast<float>(rx), static_cast<float>(ry), static_cast<float>(rz)};
  }
}
}  // namespace

void ZR_Matrix::transform(int count, const ZR_Point* in, ZR_Point* out, float z_factor) const {
  if (!body_) {
    for (int i = 0; i < count; ++i) out[i] = {in[i].x, in[i].y, in[i].z * z_factor};
  } else if (body_->precision == 0) {
    apply(static_cast<const ZR_Matrix_Single_Data*>(body_)->m, count, in, out, z_factor);
  } else {
    apply(static_cast<const ZR_Matrix_Double_Data*>(body_)->m, count, in, out, z_factor);
  }
}
