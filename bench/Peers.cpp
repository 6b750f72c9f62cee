#include "Peers.h"

namespace bench {

std::vector<std::unique_ptr<Peer>> Peers() {
  std::vector<std::unique_ptr<Peer>> peers;
#ifdef TARN_PEER_OPENCV
  peers.push_back(OpenCvPeer());
#endif
#ifdef TARN_PEER_LIBYUV
  peers.push_back(LibyuvPeer());
#endif
#ifdef TARN_PEER_LEPTONICA
  peers.push_back(LeptonicaPeer());
#endif
#ifdef TARN_PEER_FREEIMAGE
  peers.push_back(FreeImagePeer());
#endif
#ifdef TARN_PEER_GRAPHICSMAGICK
  peers.push_back(GraphicsMagickPeer());
#endif
#ifdef TARN_PEER_IMAGEQUANT
  peers.push_back(ImagequantPeer());
#endif
#ifdef TARN_PEER_SWSCALE
  peers.push_back(SwscalePeer());
#endif
#ifdef TARN_PEER_STB
  peers.push_back(StbPeer());
#endif
#ifdef TARN_PEER_PILLOW
  peers.push_back(PillowPeer());
#endif
  std::erase(peers, nullptr);
  return peers;
}

}  // namespace bench
