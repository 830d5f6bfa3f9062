// A camera on GStreamer's RTSP server: gst_rtsp_camera LAUNCH [USER PASSWORD].
// Listens on a free port of 127.0.0.1, prints the URL, serves until killed.
#include <gst/rtsp-server/rtsp-server.h>

#include <cstdio>

namespace {

void demandDigest(GstRTSPServer* server, GstRTSPMediaFactory* factory, const char* user,
                  const char* password) {
  GstRTSPAuth* auth = gst_rtsp_auth_new();
  gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
  GstRTSPToken* token =
      gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", nullptr);
  gst_rtsp_auth_add_digest(auth, user, password, token);
  gst_rtsp_token_unref(token);
  gst_rtsp_media_factory_add_role(factory, "viewer", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS,
                                  G_TYPE_BOOLEAN, TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT,
                                  G_TYPE_BOOLEAN, TRUE, nullptr);
  gst_rtsp_server_set_auth(server, auth);
  g_object_unref(auth);
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc != 2 && argc != 4) return 2;
  GstRTSPServer* server = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server, "127.0.0.1");
  gst_rtsp_server_set_service(server, "0");
  GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, argv[1]);
  if (argc == 4) demandDigest(server, factory, argv[2], argv[3]);
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
  gst_rtsp_mount_points_add_factory(mounts, "/live", factory);
  g_object_unref(mounts);
  if (gst_rtsp_server_attach(server, nullptr) == 0) return 1;
  printf("rtsp://127.0.0.1:%d/live\n", gst_rtsp_server_get_bound_port(server));
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
}
