# SPDX-License-Identifier: Apache-2.0
# Untested: not built here.
{ pkgs ? import <nixpkgs> { } }:
pkgs.stdenv.mkDerivation {
  pname = "brenvellis";
  version = "0.1.0";
  src = ../.;
  nativeBuildInputs = with pkgs; [ cmake pkg-config cups ];
  buildInputs = with pkgs; [ cups nlohmann_json utf8proc asio ];
  cmakeFlags = [
    "-DCUPS_SERVERBIN=${placeholder "out"}/lib/cups"
    "-DSYSTEMD_UNIT_DIR=lib/systemd/system"
    "-DSYSUSERS_DIR=lib/sysusers.d"
  ];
}
