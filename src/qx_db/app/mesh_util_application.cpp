// What the mesh utilities pass on to the application.

#include "qx_db/app/mesh_util.h"
#include "qx_db/callback/callbacks.h"

namespace qx {
namespace {

/// Asks the application; the default of the answer's type when there is none.
template <class Ask>
auto AskApplication(Ask&& ask) -> decltype(ask(*IAppDB::Instance())) {
  IAppDB* application = IAppDB::Instance();
  if (!application) return {};
  return ask(*application);
}

}  // namespace

double CQXMeshUtil::GetBeamVolume(ITR elem) const {
  return AskApplication([&](IAppDB& app) { return app.GetBeamVolume(session_, elem); });
}

double CQXMeshUtil::GetFaceVolume(ITR elem) const {
  return AskApplication([&](IAppDB& app) { return app.GetFaceVolume(session_, elem); });
}

double CQXMeshUtil::GetFaceVolume(ITR elem, double area) const {
  return AskApplication([&](IAppDB& app) { return app.GetFaceVolume(session_, elem, area); });
}

double CQXMeshUtil::GetSpecialElemMass(ITR elem) const {
  return AskApplication([&](IAppDB& app) { return app.GetSpecialElemMass(session_, elem); });
}

double CQXMeshUtil::GetMSetMass(const TArray<ITR>& elems) const {
  return AskApplication([&](IAppDB& app) { return app.GetMSetMass(session_, elems); });
}

void CQXMeshUtil::GetMSetMass(const TArray<ITR>& elems, double& mass_x, double& mass_y,
                              double& mass_z) const {
  mass_x = mass_y = mass_z = 0.0;
  IAppDB* application = IAppDB::Instance();
  if (application) application->GetMSetMass(session_, elems, mass_x, mass_y, mass_z);
}

int CQXMeshUtil::GetMassCenter(const TArray<ITR>& elems, double center[3]) const {
  return AskApplication([&](IAppDB& app) { return app.GetMassCenter(session_, elems, center); });
}

double CQXMeshUtil::GetElemMatlDensity(ITR elem) const {
  return AskApplication([&](IAppDB& app) { return app.GetElemMatlDensity(session_, elem); });
}

double CQXMeshUtil::GetMatlDensity(ITR matl) const {
  return AskApplication([&](IAppDB& app) { return app.GetMatlDensity(session_, matl); });
}

double CQXMeshUtil::Get1DElemPerimeter(ITR elem) const {
  return AskApplication([&](IAppDB& app) {
    double perimeter = 0;
    return app.Get1DElemPerimeter(session_, elem, perimeter) ? perimeter : 0.0;
  });
}

}  // namespace qx
