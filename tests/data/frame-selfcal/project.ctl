params params.txt
ls-params lspar.txt
camera camera.txt
image image.txt
image-geometry eo.txt
obj-crds obj.txt
ctrl-supp cs.txt
ap-set ap.txt
image-crds crds.txt
stop-dep
