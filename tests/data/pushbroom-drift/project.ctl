params params.txt
ls-params lspar.txt
camera camera.txt
image image.txt
image-geometry eo.txt
pos-cor position.txt
att-cor attitude.txt
obj-crds obj.txt
ctrl-supp cs.txt
image-crds crds.txt
stop-dep
